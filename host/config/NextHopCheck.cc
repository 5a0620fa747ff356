#include "NextHopCheck.h"

#include <fmt/format.h>

#include <unordered_map>

#include "ConfigText.h"
#include "Escape.h"

namespace host {

namespace {

/// Why addresses are no neighbours.
class Impossible {
 public:
  explicit Impossible(std::span<const OwnSubnet> subnets) {
    for (const OwnSubnet& s : subnets) {
      if (!hasEnds(s)) continue;
      reasons_[first(s)] = {"the network address of", &s};
      reasons_[last(s)] = {"the broadcast address of", &s};
    }
    // Subnets of two have neighbours there, whatever lies around them.
    for (const OwnSubnet& s : subnets) {
      if (s.length == 31) reasons_.erase(first(s)), reasons_.erase(last(s));
    }
    for (const OwnSubnet& s : subnets) reasons_[s.address.host()] = {"this router's own address on", &s};
  }
  /// Empty when nothing is wrong with it.
  std::string reasonFor(Lumo::IpAddr nextHop) const {
    if (nextHop == Lumo::IpAddr()) return "";
    const auto found = reasons_.find(nextHop.host());
    if (found == reasons_.end()) return "";
    const auto& [what, subnet] = found->second;
    const std::string net = hasEnds(*subnet) && subnet->address != nextHop
                                ? Lumo::Prefix(subnet->address, subnet->length).stringValue() + " on "
                                : "";
    return fmt::format("{} is {} {}{}", nextHop.stringValue(), what, net, escaped(subnet->interface));
  }

 private:
  static bool hasEnds(const OwnSubnet& s) { return s.length < 31; }
  static U32 first(const OwnSubnet& s) { return s.address.host() & Lumo::Prefix::mask(s.length); }
  static U32 last(const OwnSubnet& s) { return s.address.host() | ~Lumo::Prefix::mask(s.length); }

  std::unordered_map<U32, std::pair<const char*, const OwnSubnet*>> reasons_;
};

}  // namespace

std::vector<ConfigError> impossibleNextHops(const Configuration& configuration,
                                            std::span<const OwnSubnet> subnets) {
  const Impossible impossible(subnets);
  std::vector<ConfigError> errors;
  for (const MrouteLine& line : configuration.mroutes) {
    const auto* nextHop = std::get_if<Lumo::IpAddr>(&line.rpf);
    std::string reason = impossible.reasonFor(nextHop ? *nextHop : line.neighbor);
    if (reason.empty()) continue;
    reason = fmt::format("\"{}\": the {} {}", textOf(line), nextHop ? "next hop" : "neighbor", reason);
    errors.push_back({configuration.placeOf(line.origin), 0, 0, std::move(reason)});
  }
  return errors;
}

}  // namespace host
