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
  if (line.neighbor != Lumo::IpAddr()) text += " neighbor " + line.neighbor.stringValue();
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

const std::string_view exportForNames = "\"frr\" or \"kernel\"";

std::string_view nameOf(ExportFor user) {
  return user == ExportFor::frr ? "frr" : "kernel";
}

std::optional<ExportFor> exportForOf(std::string_view name) {
  for (const ExportFor user : {ExportFor::frr, ExportFor::kernel}) {
    if (name == nameOf(user)) return user;
  }
  return std::nullopt;
}

std::string faultOf(const ExportTable& table) {
  constexpr U32 lastForFrr = 251;
  if (table.table == 0) return "0 is no table";
  if (table.table >= 253 && table.table <= 255) {
    return fmt::format("table {} is the kernel's own: default, main and local are", table.table);
  }
  if (table.user == ExportFor::frr && table.table > lastForFrr) {
    return fmt::format("FRRouting imports tables 1 to {}, not {}", lastForFrr, table.table);
  }
  return "";
}

std::string textOf(const ExportTable& table) {
  const bool byDefault = table.user == ExportTable{}.user;
  return fmt::format("ip multicast export-table {}{}", table.table,
                     byDefault ? "" : fmt::format(" for {}", nameOf(table.user)));
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
  if (const auto& table = configuration.exportTable) text += textOf(*table) + '\n';
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
