#include <arpa/inet.h>

#include <charconv>
#include <ostream>

#include "Lumo/IntfId.h"
#include "Lumo/IpGenAddr.h"
#include "Lumo/IpGenPrefix.h"
#include "Zan/Exception.h"

namespace Lumo {

namespace {

/// Reads a decimal number up to `max` that fills all of `text`, without sign or leading zero.
std::optional<U32> parseNumber(std::string_view text, U32 max) {
  U32 value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc{} || stop != end || value > max) return std::nullopt;
  if (text.size() > 1 && text[0] == '0') return std::nullopt;
  return value;
}

[[noreturn]] void refuse(std::string_view text, std::string_view why) {
  Zan::throwRangeException("\"" + std::string(text) + "\" " + std::string(why));
}

/// The first `length` bits of an address, the others zero.
Ip6Addr cut(const Ip6Addr& a, U32 length) {
  Ip6Addr::Bytes bytes = a.bytes();
  for (U32 i = 0; i < bytes.size(); ++i) {
    const U32 keep = length <= i * 8 ? 0 : std::min<U32>(8, length - i * 8);
    bytes[i] = static_cast<U8>(bytes[i] & (0xFF00u >> keep));
  }
  return Ip6Addr(bytes);
}

struct PrefixText {
  std::string_view address;
  std::optional<U32> length;
};

PrefixText split(std::string_view text, U32 maxLength) {
  const auto slash = text.find('/');
  if (slash == text.npos) return {text, std::nullopt};
  return {text.substr(0, slash), parseNumber(text.substr(slash + 1), maxLength)};
}

/// The parts of a prefix text, each checked, with an error that says which part is wrong.
template <class PrefixType, class Address>
PrefixType parsePrefix(std::string_view text, std::string_view addressKind) {
  if (text.find('/') == text.npos) refuse(text, "is not a prefix: it has no /LENGTH");
  const PrefixText parts = split(text, PrefixType::maxLength);
  const auto address = Address::parse(parts.address);
  if (!address) refuse(text, "is not a prefix: no " + std::string(addressKind) + " address before the slash");
  if (!parts.length) {
    refuse(text, "is not a prefix: the length is not 0 to " + std::to_string(PrefixType::maxLength));
  }
  const PrefixType prefix(*address, *parts.length);
  if (!(prefix.address() == *address)) {
    refuse(text, "has host bits set: the network is " + prefix.stringValue());
  }
  return prefix;
}

}  // namespace

std::optional<IpAddr> IpAddr::parse(std::string_view text) {
  U32 host = 0;
  for (int i = 0; i < 4; ++i) {
    const auto dot = text.find('.');
    if ((dot == text.npos) != (i == 3)) return std::nullopt;
    const auto byte = parseNumber(text.substr(0, dot), 255);
    if (!byte) return std::nullopt;
    host = host << 8 | *byte;
    if (i < 3) text.remove_prefix(dot + 1);
  }
  return fromHost(host);
}

IpAddr::IpAddr(std::string_view text) {
  const auto address = parse(text);
  if (!address) refuse(text, "is not an IPv4 address");
  *this = *address;
}

std::string IpAddr::stringValue() const {
  std::string text;
  text.reserve(15);
  for (U32 shift = 32; shift > 0; shift -= 8) {
    const U32 byte = host() >> (shift - 8) & 0xFF;
    if (byte >= 100) text += static_cast<char>('0' + byte / 100);
    if (byte >= 10) text += static_cast<char>('0' + byte / 10 % 10);
    text += static_cast<char>('0' + byte % 10);
    if (shift > 8) text += '.';
  }
  return text;
}

std::optional<Ip6Addr> Ip6Addr::parse(std::string_view text) {
  Bytes bytes;
  if (text.find('\0') != text.npos) return std::nullopt;
  if (inet_pton(AF_INET6, std::string(text).c_str(), bytes.data()) != 1) return std::nullopt;
  return Ip6Addr(bytes);
}

Ip6Addr::Ip6Addr(std::string_view text) {
  const auto address = parse(text);
  if (!address) refuse(text, "is not an IPv6 address");
  *this = *address;
}

std::string Ip6Addr::stringValue() const {
  char buffer[INET6_ADDRSTRLEN];
  return inet_ntop(AF_INET6, bytes_.data(), buffer, sizeof buffer);
}

void Prefix::refuseLength() {
  Zan::throwRangeException("Lumo::Prefix::length > 32 not allowed");
}

Prefix::Prefix(std::string_view text) : Prefix(parsePrefix<Prefix, IpAddr>(text, "IPv4")) {}

std::optional<Prefix> Prefix::parse(std::string_view text) {
  const PrefixText parts = split(text, maxLength);
  const auto address = IpAddr::parse(parts.address);
  if (!address || !parts.length || (address->host() & ~mask(*parts.length)) != 0) return std::nullopt;
  return Prefix(*address, *parts.length);
}

std::string Prefix::stringValue() const {
  return address_.stringValue() + '/' + std::to_string(length_);
}

Ip6Prefix::Ip6Prefix(const Ip6Addr& address, U32 length) {
  if (length > maxLength) Zan::throwRangeException("Lumo::Ip6Prefix::length > 128 not allowed");
  address_ = cut(address, length);
  length_ = static_cast<U8>(length);
}

Ip6Prefix::Ip6Prefix(std::string_view text) : Ip6Prefix(parsePrefix<Ip6Prefix, Ip6Addr>(text, "IPv6")) {}

std::optional<Ip6Prefix> Ip6Prefix::parse(std::string_view text) {
  const PrefixText parts = split(text, maxLength);
  const auto address = Ip6Addr::parse(parts.address);
  if (!address || !parts.length || !(cut(*address, *parts.length) == *address)) return std::nullopt;
  return Ip6Prefix(*address, *parts.length);
}

std::string Ip6Prefix::stringValue() const {
  return address_.stringValue() + '/' + std::to_string(length_);
}

IpGenAddr::IpGenAddr(std::string_view text) {
  if (text.empty()) return;
  if (const auto v4 = IpAddr::parse(text)) {
    *this = IpGenAddr(*v4);
  } else if (const auto v6 = Ip6Addr::parse(text)) {
    *this = IpGenAddr(*v6);
  } else {
    refuse(text, "is not an IP address");
  }
}

std::string IpGenAddr::stringValue() const {
  if (af_ == AddressFamily::unknown) return "";
  return af_ == AddressFamily::ipv4 ? v4Addr().stringValue() : bytes_.stringValue();
}

IpGenPrefix::IpGenPrefix(std::string_view text) {
  if (text.empty()) return;
  *this = text.find(':') == text.npos ? IpGenPrefix(Prefix(text)) : IpGenPrefix(Ip6Prefix(text));
}

Ip6Prefix IpGenPrefix::v6Prefix() const {
  if (af_ != AddressFamily::ipv6) return {};
  return {address_, length_};
}

std::string IpGenPrefix::stringValue() const {
  if (af_ == AddressFamily::unknown) return "";
  return af_ == AddressFamily::ipv4 ? v4Prefix().stringValue() : v6Prefix().stringValue();
}

std::ostream& operator<<(std::ostream& out, IpAddr a) {
  return out << a.stringValue();
}
std::ostream& operator<<(std::ostream& out, const Ip6Addr& a) {
  return out << a.stringValue();
}
std::ostream& operator<<(std::ostream& out, Prefix p) {
  return out << p.stringValue();
}
std::ostream& operator<<(std::ostream& out, const Ip6Prefix& p) {
  return out << p.stringValue();
}
std::ostream& operator<<(std::ostream& out, const IpGenAddr& a) {
  return out << a.stringValue();
}
std::ostream& operator<<(std::ostream& out, const IpGenPrefix& p) {
  return out << p.stringValue();
}
std::ostream& operator<<(std::ostream& out, IntfId id) {
  return out << id.stringValue();
}

}  // namespace Lumo
