#include "Describe.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <map>

using namespace host::kernel;

namespace {

std::string text(const Hop& hop) {
  return fmt::format("{}@{}{}{}{}", hop.gateway.stringValue(), hop.link, hop.flags & Hop::dead ? " dead" : "",
                     hop.flags & Hop::linkdown ? " linkdown" : "", hop.flags & Hop::onlink ? " onlink" : "");
}

std::string text(const std::vector<Hop>& hops) {
  std::string all;
  for (const Hop& hop : hops) all += ' ' + text(hop);
  return all;
}

}  // namespace

std::string describe(const Link& l) {
  std::string names;
  for (const auto& name : l.alternativeNames) names += ' ' + name;
  return fmt::format("link {} {} up={} lower={} running={} state={} master={}{}", l.index, l.name, l.up,
                     l.lowerUp, l.running, l.operState, l.master, names);
}

std::string describe(const Address& a) {
  return fmt::format("address {} {}/{} peer {} scope={} secondary={} tentative={}", a.link,
                     a.local.stringValue(), a.length, a.peer.stringValue(), a.scope, a.secondary,
                     a.tentative);
}

std::string describe(const NextHop& n) {
  std::string group;
  for (const U32 id : n.group) group += ' ' + std::to_string(id);
  return fmt::format("nexthop {} blackhole={} {} group{}", n.id, n.blackhole, text(n.hop), group);
}

std::string describe(const Route& r) {
  return fmt::format("metric={} tos={} type={} proto={} scope={} nhid={}{}", r.metric, r.tos,
                     static_cast<int>(r.type), r.protocol, r.scope, r.nextHop, text(r.hops));
}

std::string describe(const IpGenPrefix& prefix, const Answer& answer) {
  static constexpr const char* kinds[] = {"none",      "attached",    "local",    "gateway",
                                          "blackhole", "unreachable", "prohibit", "throw"};
  return fmt::format("{} {}{}", prefix.stringValue(), kinds[static_cast<int>(answer.kind)],
                     text(answer.hops));
}

std::vector<std::string> describe(const Mirror& mirror) {
  std::vector<std::string> lines;
  for (const auto& [key, entry] : mirror.topology().links.all()) lines.push_back(describe(entry.value.link));
  for (const auto& [key, entry] : mirror.topology().addresses.all()) lines.push_back(describe(entry.value));
  for (const auto& [key, entry] : mirror.topology().nextHops.all()) lines.push_back(describe(entry.value));
  for (const auto family : {Lumo::ipv4(), Lumo::ipv6()}) {
    std::map<IpGenPrefix, int> seen;  // the order of the routes to one prefix counts
    mirror.routes(family).forEach([&](const Route& r) {
      lines.push_back(fmt::format("route {} #{} {}", r.prefix.stringValue(), seen[r.prefix]++, describe(r)));
    });
    mirror.routes(family).forEachAnswer([&](const IpGenPrefix& prefix, const Answer& answer) {
      lines.push_back(fmt::format("answer {} proto={} metric={}", describe(prefix, answer), answer.protocol,
                                  answer.metric));
    });
  }
  std::sort(lines.begin(), lines.end());
  return lines;
}

std::string difference(const std::vector<std::string>& a, const std::vector<std::string>& b) {
  std::vector<std::string> onlyA;
  std::vector<std::string> onlyB;
  std::set_difference(a.begin(), a.end(), b.begin(), b.end(), std::back_inserter(onlyA));
  std::set_difference(b.begin(), b.end(), a.begin(), a.end(), std::back_inserter(onlyB));
  std::string all;
  for (const auto& line : onlyA) all += "- " + line + '\n';
  for (const auto& line : onlyB) all += "+ " + line + '\n';
  return all;
}
