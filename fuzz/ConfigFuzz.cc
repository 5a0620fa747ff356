#include <algorithm>

#include "ConfigEdit.h"
#include "ConfigReader.h"
#include "ConfigText.h"
#include "MemoryFolder.h"

// Reads the bytes as the text of a configuration, and as commands on what it holds. It is refused with
// reasons that have a place and are fit to print, or its text reads as the same configuration.

namespace {

using fuzz::must;
using host::Configuration;

template <class Make>
std::optional<Configuration> made(Make make) {
  try {
    return make();
  } catch (const host::ConfigurationError& e) {
    must(!e.errors().empty());
    for (const host::ConfigError& error : e.errors()) {
      const std::string message = error.message();
      must(!error.place.empty() && !error.text.empty() &&
           std::none_of(message.begin(), message.end(), [](char c) { return static_cast<U8>(c) < ' '; }));
    }
    return std::nullopt;
  }
}

/// Of a text that includes, as some files of one folder: record separators part them.
Configuration readFiles(std::string_view text) {
  static fuzz::MemoryFolder folder("config");
  for (const char* file : {"a.conf", "b.conf", "c.conf"}) {
    const std::string_view one = text.substr(0, text.find('\x1E'));
    text.remove_prefix(std::min(text.size(), one.size() + 1));
    folder.write(file, one);
  }
  return host::readConfiguration(folder.path() + "/a.conf");
}

void run(fuzz::Bytes bytes) {
  const std::string text(fuzz::textOf(bytes));
  const bool includes = text.find("include") != text.npos;
  const bool leavesFolder = text.find_first_of("/\\") != text.npos || text.find("..") != text.npos;
  if (includes && leavesFolder) return;  // for files that are not the input's
  const auto first = made([&] { return includes ? readFiles(text) : host::parseConfiguration(text, "f"); });
  if (first) {
    const auto again = made([&] { return host::parseConfiguration(host::textOf(*first), "again"); });
    must(again && host::differenceOf(*first, *again).empty());
  }
  const Configuration before = first.value_or(Configuration());
  const std::vector<std::string> commands{text, text.substr(0, text.find('\n'))};
  const auto after = made([&] { return host::edited(before, commands); });
  // A route can't be added twice or removed twice; a mode or a table may be set to what it is.
  must(!after || text.find("multicast") != text.npos || !host::differenceOf(before, *after).empty());
}

const fuzz::Target target("config", run);

}  // namespace
