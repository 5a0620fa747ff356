#include <algorithm>

#include "ConfigEdit.h"
#include "ConfigReader.h"
#include "ConfigText.h"
#include "MemoryFolder.h"
#include "Target.h"

// Reads the bytes as the text of a configuration, and what group separators part from it as commands on that.
// It is refused with reasons that have a place and are fit to print, or its text reads as the same
// configuration. Commands lead where each of them leads, and to change nothing is refused.

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
  static fuzz::MemoryFolder folder;
  std::vector<std::string> parts = fuzz::split(text, '\x1E');
  parts.resize(3);
  for (std::size_t i = 0; i < parts.size(); ++i) folder.write(std::string(1, "abc"[i]) + ".conf", parts[i]);
  return host::readConfiguration(folder.path / "a.conf");
}

void readsAgain(const Configuration& config) {
  const auto again = made([&] { return host::parseConfiguration(host::textOf(config), "again"); });
  must(again && host::differenceOf(config, *again).empty() && config.exportTable == again->exportTable);
}

void edit(const Configuration& before, const std::vector<std::string>& commands) {
  const auto after = made([&] { return host::edited(before, commands); });
  if (!after) return;
  readsAgain(*after);
  Configuration step = before;
  for (const std::string& command : commands) {
    const Configuration last = std::exchange(step, host::edited(step, {&command, 1}));
    const bool isSetting = command.find("multicast") != command.npos;  // maybe to what it is
    must(isSetting || !host::differenceOf(last, step).empty());
  }
  must(host::differenceOf(step, *after).empty() && step.exportTable == after->exportTable);
}

void run(fuzz::Bytes bytes) {
  std::vector<std::string> parts = fuzz::split(fuzz::textOf(bytes), '\x1D');
  if (parts.empty()) return;
  const std::string text = parts.front();
  parts.erase(parts.begin());
  const bool includes = text.find("include") != text.npos;
  const bool leavesFolder = text.find_first_of("/\\") != text.npos || text.find("..") != text.npos;
  if (includes && leavesFolder) return;  // for files that are not the input's
  const auto config = made([&] { return includes ? readFiles(text) : host::parseConfiguration(text, "f"); });
  if (config) readsAgain(*config);
  edit(config.value_or(Configuration()), parts);
}

const fuzz::Target target("config", run);

}  // namespace
