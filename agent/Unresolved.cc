#include <algorithm>

#include "inside/AgentImpl.h"

namespace mrib {

namespace {

using Verdict = EngineRun::Resolver::Verdict;

Reason reasonOf(Verdict verdict) {
  switch (verdict) {
    case Verdict::noAddress:
      return Reason::noAddress;
    case Verdict::noMatch:
      return Reason::noRoute;
    case Verdict::itself:
      return Reason::itself;
    case Verdict::onlyDefault:
      return Reason::onlyDefault;
    case Verdict::coversIt:
      return Reason::coveredBy;
    case Verdict::usable:
      break;
  }
  return Reason::unsettled;
}

std::string reasonText(const Unresolved& u) {
  const std::string address = u.address.stringValue();
  switch (u.reason) {
    case Reason::noInterface:
      return "there is no such interface";
    case Reason::noAddress:
      return "the interface has no IPv4 address";
    case Reason::noRoute:
      return "no MRIB route leads to " + address;
    case Reason::onlyDefault:
      return "only the default route leads to " + address + ", which resolves nothing";
    case Reason::itself:
      return "it would resolve through itself";
    case Reason::coveredBy:
      return address + " resolves through " + u.match.stringValue() + ", which covers the prefix itself";
    case Reason::heldBack:
      return "held back: with the present addresses of interfaces it could resolve through itself in a "
             "circle";
    case Reason::waiting:
      return "waiting: preference " + std::to_string(u.installed) + " is in force";
    case Reason::unsettled:
      break;
  }
  return "it resolves, and takes its place when the MRIB is settled";
}

}  // namespace

std::string Unresolved::text() const {
  std::string text = reasonText(*this);
  if (linkIsDown && reason != Reason::waiting) text += "; the interface is down";
  if (anotherResolves) text += "; another RPF of the same preference resolves";
  return text;
}

namespace {

/// The configured prefixes in order.
std::vector<const Mroutes::Node*> sortedNodes(const Mroutes& config) {
  std::vector<const Mroutes::Node*> nodes;
  for (const Mroutes::Node& node : config.all()) nodes.push_back(&node);
  std::sort(nodes.begin(), nodes.end(), [](const auto* a, const auto* b) { return a->prefix < b->prefix; });
  return nodes;
}

/// The lines of a prefix, by preference and RPF: addresses by value, then names by text.
Few<Line> sortedLines(const Mroutes& config, const Mroutes::Node& node) {
  Few<Line> lines = node.lines;
  if (lines.size() < 2) return lines;
  std::sort(lines.begin(), lines.end(), [&](const Line& a, const Line& b) {
    if (a.preference != b.preference) return a.preference < b.preference;
    if (!a.byName || !b.byName) return a.byName != b.byName ? b.byName : a.rpf < b.rpf;
    return config.name(a.rpf).text < config.name(b.rpf).text;
  });
  return lines;
}

bool isSame(const Mroute& a, const Mroute& b) {
  return a.preference == b.preference && a.rpf == b.rpf;
}

}  // namespace

std::vector<Mroute> Agent::Impl::mroutes() const {
  std::vector<Mroute> all;
  for (const Mroutes::Node* node : sortedNodes(config)) {
    for (const Line& line : sortedLines(config, *node)) all.push_back(config.mrouteOf(node->prefix, line));
  }
  return all;
}

Agent::Impl::Probe Agent::Impl::probe(const Lumo::Prefix& prefix, const Line& line) const {
  const auto rpf = rpfOf(config, line);
  return rpf ? run->resolver().probe(*rpf, prefix) : Probe{};
}

/// The route of a prefix, if it is one of its lines that is in force: a connected route may have the
/// preference of one by chance.
const Route* Agent::Impl::configured(const Mroutes::Node& node) const {
  const Route* route = published.find(node.prefix);
  const auto isConfigured = [&](const Line& l) {
    if (!route || l.preference != route->preference) return false;
    return route->type != RouteType::connected ||
           (rpfOf(config, l) && probe(node.prefix, l).verdict == Verdict::usable);
  };
  return std::any_of(node.lines.begin(), node.lines.end(), isConfigured) ? route : nullptr;
}

Unresolved Agent::Impl::faultOf(const Lumo::Prefix& prefix, const Line& line, const Probe& probed,
                                const Route* installed) const {
  const Link* down = line.byName ? linkOf(line) : nullptr;
  Unresolved u{config.mrouteOf(prefix, line), reasonOf(probed.verdict), probed.hop, probed.lpm.v4Prefix()};
  u.installed = installed ? installed->preference : U8{0};
  u.anotherResolves = u.installed == line.preference;
  u.linkIsDown = down && !(down->up && down->carrier);
  if (line.held) {
    u.reason = Reason::heldBack;
  } else if (!rpfOf(config, line)) {
    u.reason = Reason::noInterface;
  }
  return u;
}

/// Nothing for a line that is in force.
std::optional<Unresolved> Agent::Impl::unresolvedOf(const Lumo::Prefix& prefix, const Line& line,
                                                    const Route* installed) const {
  const Probe probed = probe(prefix, line);
  const bool resolves = rpfOf(config, line) && probed.verdict == Verdict::usable;
  if (resolves && installed && installed->preference == line.preference) return std::nullopt;
  Unresolved u = faultOf(prefix, line, probed, installed);
  const bool isOffered = u.reason != Reason::heldBack && u.reason != Reason::noInterface;
  if (isOffered && installed && installed->preference < line.preference) u.reason = Reason::waiting;
  return u;
}

Resolution Agent::Impl::resolutionOf(const Lumo::Prefix& prefix, const Line& line,
                                     const Route* installed) const {
  Resolution r{config.mrouteOf(prefix, line), {}, {}, {}, {}, false};
  const auto rpf = rpfOf(config, line);
  const Probe probed = probe(prefix, line);
  if (rpf && probed.verdict != Verdict::noAddress) r.address = probed.hop;
  if (r.address && !probed.lpm.empty()) r.match = probed.lpm.v4Prefix();
  if (!rpf || probed.verdict != Verdict::usable) {
    r.fault = faultOf(prefix, line, probed, installed);
    return r;
  }
  std::vector<Routing::Fib::Via> vias;
  run->resolver().viasOf(*rpf, probed, vias);
  std::vector<NextHop> hops;
  for (const auto& via : vias) hops.push_back(nextHopOf(via));
  std::sort(hops.begin(), hops.end());
  hops.erase(std::unique(hops.begin(), hops.end()), hops.end());
  r.nextHops.assign(hops.data(), hops.data() + hops.size());
  r.inForce = installed && installed->preference == line.preference;
  return r;
}

std::vector<Mroute> Agent::Impl::circle(const Mroute& heldBack) const {
  std::vector<Mroute> circle;
  const Mroutes::Node* node = config.find({heldBack.prefix.address.v4Addr(), heldBack.prefix.length});
  if (!node) return circle;
  for (const Line& line : node->lines) {
    if (!line.held || !isSame(config.mrouteOf(node->prefix, line), heldBack)) continue;
    for (const auto& [place, each] : config.circleOf(*node, line)) {
      circle.push_back(config.mrouteOf(config.all()[place].prefix, each));
    }
  }
  return circle;
}

const Link* Agent::Impl::linkOf(const Line& line) const {
  const Intf* intf = interfaces.find(config.name(line.rpf).link);
  return intf ? &intf->link : nullptr;
}

std::vector<Unresolved> Agent::Impl::unresolved() const {
  std::vector<Unresolved> all;
  for (const Mroutes::Node* node : sortedNodes(config)) {
    const Route* installed = configured(*node);
    for (const Line& line : sortedLines(config, *node)) {
      auto u = unresolvedOf(node->prefix, line, installed);
      if (u) all.push_back(std::move(*u));
    }
  }
  return all;
}

std::vector<Resolution> Agent::Impl::resolutions(const Lumo::Prefix& prefix) const {
  std::vector<Resolution> all;
  const Mroutes::Node* node = config.find(prefix);
  if (!node) return all;
  const Route* installed = configured(*node);
  for (const Line& line : sortedLines(config, *node)) all.push_back(resolutionOf(prefix, line, installed));
  return all;
}

}  // namespace mrib
