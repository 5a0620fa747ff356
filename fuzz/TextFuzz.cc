#include <arpa/inet.h>

#include <algorithm>
#include <string>

#include "Escape.h"
#include "Lumo/IpGenPrefix.h"
#include "Target.h"
#include "Zan/Exception.h"

// Reads the bytes as the text of an address and of a prefix: it must be what the system's own parser says,
// and come back from its text as the same. What is escaped must be fit for any terminal.

namespace {

using fuzz::must;

/// By the system: dotted decimal in four parts, or RFC 4291; nothing otherwise.
bool isAddress(int family, const std::string& text) {
  unsigned char bytes[16];
  return text.find('\0') == std::string::npos && inet_pton(family, text.c_str(), bytes) == 1;
}

template <class Address>
void address(int family, const std::string& text) {
  const auto parsed = Address::parse(text);
  must(parsed.has_value() == isAddress(family, text));
  if (parsed) must(Address::parse(parsed->stringValue()) == parsed);
}

void prefix(const std::string& text) {
  try {
    const Lumo::IpGenPrefix prefix{std::string_view(text)};
    must(prefix.empty() || Lumo::IpGenPrefix(std::string_view(prefix.stringValue())) == prefix);
  } catch (const Zan::RangeException& e) {
    must(*e.what() != 0);
  }
}

void run(fuzz::Bytes bytes) {
  const std::string text(fuzz::textOf(bytes));
  address<Lumo::IpAddr>(AF_INET, text);
  address<Lumo::Ip6Addr>(AF_INET6, text);
  prefix(text);
  const std::string safe = host::escaped(text);
  must(std::none_of(safe.begin(), safe.end(), [](char c) { return static_cast<U8>(c) < ' ' || c == 0x7F; }));
  must(host::jsonText(safe) == safe);  // it is UTF-8 by now
}

const fuzz::Target target("text", run);

}  // namespace
