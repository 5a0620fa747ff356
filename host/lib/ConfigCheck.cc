#include "ConfigCheck.h"

#include <fmt/format.h>

#include <unordered_map>

#include "ConfigText.h"
#include "Escape.h"

namespace host {

namespace {

struct PrefixHash {
  std::size_t operator()(const Lumo::Prefix& p) const { return p.hash(); }
};

U32 lineOf(const MrouteLine& line) {
  return static_cast<U32>(line.origin);
}

}  // namespace

std::vector<std::string> warningsFor(const std::vector<MrouteLine>& lines, const KernelState& kernel) {
  std::unordered_map<Lumo::Prefix, const KernelRoute*, PrefixHash> connected;
  for (const KernelRoute& route : kernel.routes) {
    if (route.connected) connected[route.prefix] = &route;
  }
  std::vector<std::string> warnings;
  for (const MrouteLine& line : lines) {
    if (const auto found = connected.find(line.prefix); found != connected.end()) {
      const Link* link = kernel.link(found->second->nextHops.front().link);
      warnings.push_back(fmt::format(
          "line {}: {} is directly connected on {}: once it resolves, the configured RPF replaces the "
          "connected one, so that packets from hosts on that subnet fail the check unless they come in by {}",
          lineOf(line), line.prefix.stringValue(), link ? escaped(link->name) : "?", rpfText(line)));
    }
    if (const auto* name = std::get_if<std::string>(&line.rpf); name && !kernel.link(*name)) {
      warnings.push_back(fmt::format("line {}: interface {} does not exist: kept, not resolved", lineOf(line),
                                     rpfText(line)));
    }
  }
  return warnings;
}

}  // namespace host
