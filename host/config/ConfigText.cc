#include "ConfigText.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>

#include "Escape.h"

namespace host {

namespace {

// In the order of the enumerators.
constexpr std::array<std::string_view, 5> names{"mrib-only", "mrib-then-urib", "urib-only", "longer-prefix",
                                                "lower-distance"};

constexpr std::string_view letters = "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ";

/// Whether a name is read as a name without quotes: no address, number or comment looks like it.
bool isPlain(std::string_view name) {
  const auto isPlainByte = [](char c) {
    return letters.find(c) != letters.npos || (c >= '0' && c <= '9') || c == '.' || c == '-' || c == '_' ||
           c == '@';
  };
  return letters.find(name.front()) != letters.npos && std::all_of(name.begin(), name.end(), isPlainByte);
}

void append(std::string& text, const MrouteLine& line) {
  text += "ip mroute ";
  text += line.prefix.stringValue();
  text += ' ';
  const auto* name = std::get_if<std::string>(&line.rpf);
  text += !name || isPlain(*name) ? rpfText(line) : fmt::format("\"{}\"", escaped(*name));
  if (line.preference != 1) text += ' ' + std::to_string(line.preference);
}

}  // namespace

const std::string_view lookupModeNames =
    "\"mrib-only\", \"mrib-then-urib\", \"urib-only\", \"longer-prefix\" or \"lower-distance\"";

std::string_view nameOf(LookupMode mode) {
  return names[static_cast<std::size_t>(mode)];
}

std::optional<LookupMode> lookupModeOf(std::string_view name) {
  const auto at = std::find(names.begin(), names.end(), name);
  if (at == names.end()) return std::nullopt;
  return static_cast<LookupMode>(at - names.begin());
}

std::string rpfText(const MrouteLine& line) {
  if (const auto* address = std::get_if<Lumo::IpAddr>(&line.rpf)) return address->stringValue();
  return escaped(std::get<std::string>(line.rpf));
}

std::string textOf(const MrouteLine& line) {
  std::string text;
  append(text, line);
  return text;
}

std::string textOf(const Configuration& configuration) {
  std::string text;
  if (configuration.lookupMode != Configuration{}.lookupMode) {
    text = fmt::format("ip multicast rpf-lookup-mode {}\n", nameOf(configuration.lookupMode));
  }
  for (const MrouteLine& line : configuration.mroutes) {
    append(text, line);
    text += '\n';
  }
  return text;
}

std::string Configuration::placeOf(U64 origin) const {
  const U64 file = origin >> 32;
  if (file == 0 || file > files.size()) return "the command line";
  return fmt::format("{}:{}", escaped(files[file - 1]), static_cast<U32>(origin));
}

}  // namespace host
