#include <fmt/format.h>

#include <algorithm>

#include "ConfigText.h"
#include "Escape.h"
#include "Explainer.h"
#include "Names.h"
#include "Why.h"

namespace host {

using Kind = Explanation::Kind;
using LineState = Explanation::LineState;
using Step = Explanation::Step;

namespace {

std::string_view textOf(LookupMode mode) {
  switch (mode) {
    case LookupMode::mribOnly:
      return "only the MRIB is asked";
    case LookupMode::mribThenUrib:
      return "the MRIB is asked first, and the unicast table where the MRIB has no route";
    case LookupMode::uribOnly:
      return "only the unicast table is asked";
    case LookupMode::longerPrefix:
      return "the MRIB and the unicast table are asked, and the longer match counts";
    case LookupMode::lowerDistance:
      return "the MRIB and the unicast table are asked, and the lower preference counts";
  }
  return "";
}

std::string routeText(const Router& router, const mrib::Route& route) {
  const auto lines = router.agent().resolutions(route.prefix);
  const bool isConfigured =
      std::any_of(lines.begin(), lines.end(), [](const auto& line) { return line.inForce; });
  const bool isConnected = route.type == mrib::RouteType::connected;
  const std::string_view kind = !isConfigured ? "connected"
                                : isConnected ? "configured, in place of the connected route"
                                              : "configured";
  return fmt::format("{}, preference {}, {}", kind, route.preference, waysText(waysOf(router, route)));
}

std::string unicastText(const Router& router, const Step& step) {
  using enum kernel::Answer::Kind;
  const kernel::Answer& answer = *step.unicast;
  const std::string prefix = step.prefix.stringValue();
  const std::string origin =
      fmt::format("protocol {}, preference {}, metric {}", escaped(kernel::protocolName(answer.protocol)),
                  preferenceOf(answer.protocol), answer.metric);
  if (answer.kind == local)
    return fmt::format("it is this router's own address ({})", waysText(waysOf(router, answer)));
  if (answer.kind == attached || answer.kind == gateway) {
    return fmt::format("{} {} ({})", prefix, waysText(waysOf(router, answer)), origin);
  }
  const std::string_view kind = answer.kind == blackhole     ? "a blackhole"
                                : answer.kind == unreachable ? "one that says unreachable"
                                : answer.kind == prohibit    ? "one that prohibits it"
                                                             : "one that sends on to another table";
  return fmt::format("{} is {} ({})", prefix, kind, origin);
}

/// The best preference that is in force for the prefix of a line.
U32 installedFor(const Router& router, const Lumo::IpGenPrefix& prefix) {
  const mrib::Route* route = router.agent().route(prefix.v4Prefix());
  return route ? route->preference : 0U;
}

std::string lineText(const Router& router, const Step& step) {
  const mrib::Resolution& line = *step.line;
  const std::string name = lineName(router.configuration(), line.mroute);
  switch (step.state) {
    case LineState::inForce:
      return fmt::format("{} is in force", name);
    case LineState::waiting:
      return fmt::format("{} resolves, and waits: preference {} is in force", name,
                         installedFor(router, step.prefix));
    case LineState::unsettled:
      return fmt::format("{} resolves, and takes its place when the MRIB is settled", name);
    case LineState::unresolved:
      break;
  }
  return name + ' ' + step.fault;
}

std::string throughText(const Router& router, const Step& step) {
  return fmt::format("{} resolves through {}: {}", step.line->address->stringValue(),
                     step.prefix.stringValue(), routeText(router, *step.route));
}

std::string interfaceText(const Explanation::Interface& interface) {
  const std::string_view state = !interface.up        ? "is down"
                                 : !interface.carrier ? "is up, without carrier"
                                                      : "is up, with carrier";
  const std::string addresses =
      interface.addresses.empty() ? "no address" : fmt::format("{}", fmt::join(interface.addresses, ", "));
  return fmt::format("{} {}; {}", escaped(interface.name), state, addresses);
}

std::string linkName(const Router& router, U32 index) {
  const kernel::Link* link = router.mirror().topology().link(index);
  return link ? escaped(link->name) : "?";
}

std::string answerText(const Router& router, const Decision& d) {
  if (d.status == RpfAnswer::Status::noRoute) return "no table that is asked has a route";
  const std::string table = d.table == RpfAnswer::Table::mrib ? "the MRIB" : "the unicast table";
  if (d.status == RpfAnswer::Status::unreachable)
    return fmt::format("{} answers: packets may not come at all", table);
  return fmt::format("{} answers: packets may come {}; {}", table, waysText(d.ways), decidingText(router, d));
}

std::string incomingText(const Router& router, const Explanation& e) {
  const std::string name = linkName(router, *e.incoming);
  if (e.decision.ways.empty())
    return fmt::format("packets that come in by {} fail: there is no way for them", name);
  if (e.decision.allows(*e.incoming))
    return fmt::format("packets that come in by {} pass the RPF check", name);
  return fmt::format("packets that come in by {} fail the RPF check: they are expected on {}", name,
                     interfacesText(e.decision.ways));
}

std::string kernelText(const KernelVerdict& v) {
  const std::string name = escaped(v.interface);
  if (v.cause == KernelVerdict::Cause::unknown)
    return fmt::format("what the kernel does with them on {} is not known: {}", name, v.why);
  const std::string filter = v.settings ? fmt::format(" (rp_filter: all {}, {} {})", v.settings->all.rpFilter,
                                                      name, v.settings->own.rpFilter)
                                        : "";
  if (!v.drops()) return fmt::format("the kernel takes them in by {}{}", name, filter);
  const std::string change = v.change.empty() ? "" : fmt::format("; `{}` would change it", escaped(v.change));
  return fmt::format("the kernel drops what comes in by {}: {}{}{}", name, v.why, filter, change);
}

std::string forwardingText(const KernelVerdict& v) {
  constexpr std::string_view noDaemon = "no multicast routing daemon has added the interface";
  const std::string name = escaped(v.interface);
  if (v.mayForward()) return fmt::format("the kernel forwards multicast from {}", name);
  return fmt::format("the kernel forwards no multicast from {}: mc_forwarding is off, {}", name, noDaemon);
}

}  // namespace

std::string textOf(const Router& router, const Explanation& e, const Step& step) {
  const std::string source = e.decision.source.stringValue();
  const std::string seen = step.seen == 0 ? "" : fmt::format(" (step {})", step.seen);
  switch (step.kind) {
    case Kind::lookupMode: {
      const LookupMode mode = router.configuration().lookupMode;
      const bool isIpv4 = e.decision.source.af() == Lumo::ipv4();
      return fmt::format("{}: {}{}", nameOf(mode), textOf(mode), isIpv4 ? "" : "; the MRIB is of IPv4");
    }
    case Kind::match:
      if (!step.route) return fmt::format("the MRIB has no route to {}", source);
      return fmt::format("the MRIB's longest match is {}: {}", step.prefix.stringValue(),
                         routeText(router, *step.route));
    case Kind::shorter:
      return fmt::format("{} also matches, and is shorter: {}", step.prefix.stringValue(),
                         routeText(router, *step.route));
    case Kind::wouldMatch:
      return fmt::format("{} would match, if it resolved{}", step.prefix.stringValue(), seen);
    case Kind::line:
      return lineText(router, step);
    case Kind::onCircle:
      return fmt::format("which could resolve through {}",
                         lineName(router.configuration(), step.line->mroute));
    case Kind::through:
      return throughText(router, step) + seen;
    case Kind::interface:
      return interfaceText(*step.interface);
    case Kind::cut:
      return "there are more lines and routes behind these, too many to tell";
    case Kind::unicast:
      if (!step.unicast) return fmt::format("the unicast table has no route to {}", source);
      return fmt::format("the unicast table says: {}", unicastText(router, step));
    case Kind::answer:
      return answerText(router, e.decision);
    case Kind::incoming:
      return incomingText(router, e);
    case Kind::kernelCheck:
      return kernelText(*step.kernel);
    case Kind::forwarding:
      return forwardingText(*step.kernel);
  }
  return "";
}

}  // namespace host
