#include "Names.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <vector>

namespace host::kernel {

namespace {

struct Name {
  U32 number;
  std::string_view name;
};
using Names = std::vector<Name>;

const Names protocols{{0, "unspec"},    {1, "redirect"}, {2, "kernel"}, {3, "boot"},   {4, "static"},
                      {8, "gated"},     {9, "ra"},       {10, "mrt"},   {11, "zebra"}, {12, "bird"},
                      {13, "dnrouted"}, {14, "xorp"},    {15, "ntk"},   {16, "dhcp"},  {18, "keepalived"},
                      {42, "babel"},    {186, "bgp"},    {187, "isis"}, {188, "ospf"}, {189, "rip"},
                      {192, "eigrp"}};
const Names scopes{{0, "global"}, {200, "site"}, {253, "link"}, {254, "host"}, {255, "nowhere"}};
const Names types{{0, "none"},     {1, "unicast"},   {2, "local"},     {3, "broadcast"},
                  {4, "anycast"},  {5, "multicast"}, {6, "blackhole"}, {7, "unreachable"},
                  {8, "prohibit"}, {9, "throw"},     {10, "nat"}};
const Names operStates{{0, "UNKNOWN"}, {1, "NOTPRESENT"}, {2, "DOWN"}, {3, "LOWERLAYERDOWN"},
                       {4, "TESTING"}, {5, "DORMANT"},    {6, "UP"}};
const Names tables{{255, "local"}, {254, "main"}, {253, "default"}};

std::optional<U32> number(std::string_view text) {
  const bool hex = text.starts_with("0x");
  if (hex) text.remove_prefix(2);
  U32 value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value, hex ? 16 : 10);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::optional<U32> find(const Names& names, std::string_view name) {
  const auto it = std::find_if(names.begin(), names.end(), [&](const Name& n) { return n.name == name; });
  return it == names.end() ? number(name) : std::optional(it->number);
}

/// A line of these files is a number and a name.
std::optional<U32> findInFile(const std::filesystem::path& path, std::string_view name) {
  std::ifstream in(path);
  for (std::string line; std::getline(in, line);) {
    std::istringstream words(line);
    std::string first;
    std::string second;
    if (words >> first >> second && second == name) return number(first);
  }
  return std::nullopt;
}

/// In `rt_...` and `rt_....d/*.conf`, where distributions and administrators keep them.
std::optional<U32> findOnMachine(const std::string& file, std::string_view name) {
  for (const std::string folder : {"/etc/iproute2/", "/usr/share/iproute2/", "/usr/lib/iproute2/"}) {
    if (const auto found = findInFile(folder + file, name)) return found;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder + file + ".d", error)) {
      if (entry.path().extension() != ".conf") continue;
      if (const auto found = findInFile(entry.path(), name)) return found;
    }
  }
  return std::nullopt;
}

std::optional<U8> byte(std::optional<U32> value) {
  if (!value || *value > 0xFF) return std::nullopt;
  return static_cast<U8>(*value);
}

}  // namespace

std::string protocolName(U8 protocol) {
  const auto it =
      std::find_if(protocols.begin(), protocols.end(), [&](const Name& n) { return n.number == protocol; });
  return it == protocols.end() ? std::to_string(protocol) : std::string(it->name);
}

std::optional<U8> protocolNumber(std::string_view name) {
  const auto shipped = find(protocols, name);
  return byte(shipped ? shipped : findOnMachine("rt_protos", name));
}

std::optional<U8> scopeNumber(std::string_view name) {
  const auto shipped = find(scopes, name);
  return byte(shipped ? shipped : findOnMachine("rt_scopes", name));
}

std::optional<U8> tosNumber(std::string_view name) {
  const auto plain = number(name);
  return byte(plain ? plain : findOnMachine("rt_dsfield", name));
}

std::optional<RouteType> routeTypeNumber(std::string_view name) {
  const auto value = byte(find(types, name));
  if (!value) return std::nullopt;
  return static_cast<RouteType>(*value);
}

std::optional<U8> operStateNumber(std::string_view name) {
  return byte(find(operStates, name));
}

Link::Follows followsOf(std::string_view kind) {
  constexpr std::string_view carriers[] = {"veth", "macvlan", "macvtap", "ipvlan", "ipvtap", "macsec"};
  if (kind == "vlan") return Link::Follows::state;
  const bool isOne = std::find(std::begin(carriers), std::end(carriers), kind) != std::end(carriers);
  return isOne ? Link::Follows::carrier : Link::Follows::nothing;
}

std::optional<U32> tableNumber(std::string_view name) {
  const auto known = find(tables, name);
  return known ? known : findOnMachine("rt_tables", name);
}

}  // namespace host::kernel
