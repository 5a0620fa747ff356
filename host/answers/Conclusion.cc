#include <fmt/format.h>

#include <algorithm>

#include "ConfigText.h"
#include "Escape.h"
#include "Explainer.h"

namespace host {

using Step = Explanation::Step;
using Verdict = Explanation::Verdict;
using Troubles = std::vector<Explainer::Trouble>;

namespace {

const KernelVerdict* dropAmong(const Explanation& e) {
  const auto at = std::find_if(e.steps.begin(), e.steps.end(),
                               [](const Step& s) { return s.kernel && s.kernel->drops(); });
  return at == e.steps.end() ? nullptr : &*at->kernel;
}

const KernelVerdict* notForwardingAmong(const Explanation& e) {
  const auto at = std::find_if(e.steps.begin(), e.steps.end(),
                               [](const Step& s) { return s.kernel && !s.kernel->mayForward(); });
  return at == e.steps.end() ? nullptr : &*at->kernel;
}

Verdict verdictOf(const Explanation& e) {
  if (e.decision.status != RpfAnswer::Status::found) return Verdict::noRpf;
  if (e.incoming && !e.decision.allows(*e.incoming)) return Verdict::wrongInterface;
  if (dropAmong(e)) return Verdict::kernelDrops;
  return notForwardingAmong(e) ? Verdict::notForwarded : Verdict::accepted;
}

// Clauses of the conclusion. Each begins with what separates it from the one before, or is empty.

/// Why no table that is asked has a route.
std::string nobodyKnows(const Router& router, const Decision& d) {
  const LookupMode mode = router.configuration().lookupMode;
  const RpfAnswer other = mode == LookupMode::mribOnly ? router.inUnicast(d.source) : router.inMrib(d.source);
  if (other.status == RpfAnswer::Status::noRoute) {
    if (d.source.af() != Lumo::ipv4())
      return ": the unicast table has no route to it, and the MRIB is of IPv4";
    return std::string(": neither the MRIB nor the unicast table has a route to it") +
           (mode == LookupMode::uribOnly ? "" : ", and no line covers it");
  }
  const bool isUnicast = other.table == RpfAnswer::Table::unicast;
  return fmt::format(": the {} has none, and {} keeps the {} from being asked, which has {} {}",
                     isUnicast ? "MRIB" : "unicast table", nameOf(mode), isUnicast ? "unicast table" : "MRIB",
                     other.prefix.stringValue(),
                     waysText(isUnicast ? waysOf(router, *other.answer) : waysOf(router, *other.route)));
}

/// The way that packets must come, with what decides; for an incoming interface, whether they pass.
std::string answerClause(const Router& router, const Explanation& e, const Troubles& troubles) {
  const Decision& d = e.decision;
  const std::string source = d.source.stringValue();
  if (d.status == RpfAnswer::Status::noRoute) {
    return fmt::format("packets from {} have no way in{}", source,
                       troubles.empty() ? nobodyKnows(router, d) : "");
  }
  const std::string why = decidingText(router, d);
  if (d.status == RpfAnswer::Status::unreachable)
    return fmt::format("packets from {} have no way in: {}", source, why);
  const std::string names = interfacesText(d.ways);
  const std::string_view must = names.find(" or ") == names.npos ? "must" : "may";
  if (!e.incoming) return fmt::format("packets from {} {} come in by {}: {}", source, must, names, why);
  const kernel::Link* link = router.mirror().topology().link(*e.incoming);
  const std::string name = link ? escaped(link->name) : "?";
  if (d.allows(*e.incoming)) return fmt::format("packets from {} pass on {}: {}", source, name, why);
  return fmt::format("packets from {} fail on {} and {} come in by {}: {}", source, name, must, names, why);
}

/// A line with what is wrong with it.
std::string faultyLine(const Router& router, const Step& line, std::string_view kind) {
  const Configuration& configuration = router.configuration();
  const std::string text =
      fmt::format("{}{} {}", lineName(configuration, line.line->mroute), kind, line.fault);
  const auto circle = router.agent().circle(line.line->mroute);
  return circle.empty() ? text : text + ", with " + lineNames(configuration, std::span(circle).subspan(1));
}

/// The first configured line that does not resolve, and the cause behind it.
std::string troubleClause(const Router& router, const Explanation& e, const Troubles& troubles) {
  if (troubles.empty()) return "";
  const auto& [place, cause, longer] = troubles.front();
  const Step& line = e.steps[place];
  const auto& inForce = e.decision.lines;
  const bool better = !inForce.empty() && line.line->mroute.preference < inForce.front().preference;
  std::string text = e.decision.status == RpfAnswer::Status::noRoute ? ": " : "; ";
  const std::string_view kind = longer ? ", a longer match," : better ? ", of a better preference," : "";
  text += faultyLine(router, line, kind);
  if (cause != place) text += ", since " + faultyLine(router, e.steps[cause], "");
  return troubles.size() == 1 ? text : text + fmt::format(" (and {} more)", troubles.size() - 1);
}

/// A backup that one RPF of a better preference is enough to hide.
std::string hiddenClause(const Router& router, const Explanation& e) {
  const auto& lines = e.decision.lines;
  const auto isOfRoute = [&](const Step& s) {
    return s.kind == Explanation::Kind::line && s.prefix == e.decision.prefix && !lines.empty();
  };
  const bool half = std::any_of(e.steps.begin(), e.steps.end(), [&](const Step& s) {
    return isOfRoute(s) && s.line->fault && s.line->mroute.preference == lines.front().preference;
  });
  const auto hidden = std::find_if(e.steps.begin(), e.steps.end(), [&](const Step& s) {
    return isOfRoute(s) && s.state == Explanation::LineState::waiting;
  });
  if (!half || hidden == e.steps.end()) return "";
  return fmt::format("; {} waits as long as one of preference {} resolves",
                     lineName(router.configuration(), hidden->line->mroute), lines.front().preference);
}

/// An interface by which packets should come, and cannot.
std::string linkClause(const Explanation& e) {
  for (const Step& step : e.steps) {
    if (!step.interface || !e.decision.allows(step.interface->index)) continue;
    if (!step.interface->up) return fmt::format("; {} is down", escaped(step.interface->name));
    if (!step.interface->carrier) return fmt::format("; {} has no carrier", escaped(step.interface->name));
  }
  return "";
}

/// A next hop that is no neighbour.
std::string ownAddressClause(const Router& router, const Explanation& e) {
  const auto own = router.mirror().topology().ownAddresses(router.mirror().settings().table);
  for (const Step& step : e.steps) {
    if (step.kind != Explanation::Kind::line || step.state != Explanation::LineState::inForce) continue;
    const mrib::Mroute& line = step.line->mroute;
    const auto* rpf = std::get_if<Lumo::IpGenAddr>(&line.rpf);
    if (!rpf || !own.contains(*rpf)) continue;
    return fmt::format("; {} in {} is this router's own address, which no neighbor has", rpf->stringValue(),
                       router.configuration().placeOf(line.origin));
  }
  return "";
}

std::string dropText(const KernelVerdict& drop) {
  return drop.change.empty() ? drop.why
                             : fmt::format("{}; `{}` would change it", drop.why, escaped(drop.change));
}

/// What the kernel does besides, which alone is not what is wrong. That it forwards nothing matters only to
/// what would pass.
std::string kernelClause(const Explanation& e) {
  const KernelVerdict* drop = dropAmong(e);
  if (drop) return fmt::format("; the kernel drops them on {}: {}", escaped(drop->interface), drop->why);
  if (e.verdict != Verdict::notForwarded) return "";
  return fmt::format(
      "; the kernel forwards no multicast from {}: mc_forwarding is off, no multicast routing daemon has "
      "added it",
      escaped(notForwardingAmong(e)->interface));
}

/// "The MRIB accepts it, the kernel drops it", which is what people do not expect.
std::string dropSentence(const Router& router, const Explanation& e) {
  const KernelVerdict& drop = *dropAmong(e);
  const std::string_view table = e.decision.table == RpfAnswer::Table::mrib ? "MRIB" : "unicast table";
  return fmt::format("the {} accepts packets from {} on {} by {}, the kernel drops them there: {}", table,
                     e.decision.source.stringValue(), escaped(drop.interface),
                     decidingName(router, e.decision), dropText(drop));
}

}  // namespace

void conclude(const Router& router, Explanation& e, const Troubles& troubles) {
  e.verdict = verdictOf(e);
  const bool isDropped = e.verdict == Verdict::kernelDrops;
  e.conclusion = isDropped ? dropSentence(router, e) : answerClause(router, e, troubles);
  e.conclusion += troubleClause(router, e, troubles) + hiddenClause(router, e) + ownAddressClause(router, e) +
                  linkClause(e);
  if (!isDropped) e.conclusion += kernelClause(e);
}

}  // namespace host
