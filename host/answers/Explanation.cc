#include "Explanation.h"

#include <algorithm>
#include <set>

#include "Explainer.h"

namespace host {

using mrib::Resolution;

namespace {

constexpr std::size_t mostSteps = 2000;  // nobody reads more; a line may lead to thousands of ways

const mrib::Route* routeOf(const Router& router, Lumo::IpAddr address, U32 length) {
  return router.agent().route({address, length});
}

/// The preference that is in force among the lines of a prefix; 0: none is.
U8 installedAmong(const std::vector<Resolution>& lines) {
  const auto at = std::find_if(lines.begin(), lines.end(), [](const auto& l) { return l.inForce; });
  return at == lines.end() ? U8{0} : static_cast<U8>(at->mroute.preference);
}

Explanation::LineState stateOf(const Resolution& line, U8 installed) {
  if (line.inForce) return Explanation::LineState::inForce;
  if (line.fault) return Explanation::LineState::unresolved;
  const bool waits = installed != 0 && installed < line.mroute.preference;
  return waits ? Explanation::LineState::waiting : Explanation::LineState::unsettled;
}

}  // namespace

Explanation explain(const Router& router, const Lumo::IpGenAddr& source, std::optional<U32> incoming,
                    const kernel::ReversePath* kernel) {
  Explainer explainer(router, kernel);
  Explanation explanation = explainer.explain(source, incoming);
  for (Explanation::Step& step : explanation.steps) step.text = textOf(router, explanation, step);
  conclude(router, explanation, explainer.troubles());
  return explanation;
}

Explanation Explainer::explain(const Lumo::IpGenAddr& source, std::optional<U32> incoming) {
  e_.decision = decisionFor(router_, source);
  e_.incoming = incoming;
  add(Kind::lookupMode, 0);
  const bool asksMrib = router_.configuration().lookupMode != LookupMode::uribOnly;
  if (source.af() == Lumo::ipv4() && asksMrib) explainMatch(source.v4Addr());
  explainUnicast();
  add(Kind::answer, 0);
  if (incoming) add(Kind::incoming, 0);
  if (source.af() == Lumo::ipv4() && kernel_) explainKernel();
  return std::move(e_);
}

Explanation::Step* Explainer::add(Kind kind, unsigned depth) {
  e_.steps.push_back({kind, depth});
  return &e_.steps.back();
}

// ---- The MRIB ----

void Explainer::explainMatch(Lumo::IpAddr source) {
  const RpfAnswer answer = router_.inMrib(Lumo::IpGenAddr(source));
  Step* step = add(Kind::match, 0);
  if (answer.route) {
    step->route = *answer.route;
    step->prefix = answer.prefix;
    explained_[answer.route->prefix] = {e_.steps.size(), {}};
    addShorter(source, answer.route->prefix.length());
  }
  addUnresolved(source, answer.route ? answer.route->prefix.length() : ~U32{0}, 1, true);
  if (answer.route) explainRoute(*answer.route, 1);
  if (e_.steps.size() > mostSteps) add(Kind::cut, 1);
}

void Explainer::addShorter(Lumo::IpAddr source, U32 length) {
  for (U32 shorter = length; shorter-- > 0;) {
    const mrib::Route* route = routeOf(router_, source, shorter);
    if (!route) continue;
    Step* step = add(Kind::shorter, 1);
    step->route = *route;
    step->prefix = route->prefix;
  }
}

/// The configured prefixes that cover an address, are longer than `longerThan` (all ones: any) and have no
/// route; the longest first. The cause of the first.
Explainer::Cause Explainer::addUnresolved(Lumo::IpAddr address, U32 longerThan, unsigned depth,
                                          bool isSource) {
  Cause first;
  for (U32 length = Lumo::Prefix::maxLength + 1; length-- > (longerThan + 1);) {
    const Lumo::Prefix prefix(address, length);
    if (router_.agent().route(prefix)) continue;
    const auto lines = router_.agent().resolutions(prefix);
    if (lines.empty() || e_.steps.size() > mostSteps) continue;
    Step* step = add(Kind::wouldMatch, depth);
    step->prefix = prefix;
    const auto [known, isNew] = explained_.try_emplace(prefix, Explained{e_.steps.size(), {}});
    if (!isNew) step->seen = known->second.step;
    for (const Resolution& line : isNew ? lines : std::vector<Resolution>()) {
      const std::size_t place = e_.steps.size();
      const Cause cause = explainLine(line, 0, depth + 1);
      if (!known->second.cause) known->second.cause = cause;
      if (isSource && cause) troubles_.push_back({place, *cause, true});
    }
    if (!first) first = known->second.cause;
  }
  return first;
}

void Explainer::explainRoute(const mrib::Route& route, unsigned depth) {
  const bool isTop = depth == 1;
  const auto lines = router_.agent().resolutions(route.prefix);
  const U8 installed = installedAmong(lines);
  for (const Resolution& line : lines) {
    if (e_.steps.size() > mostSteps) return;
    const std::size_t place = e_.steps.size();
    const Cause cause = explainLine(line, installed, depth);
    const bool couldDecide = installed == 0 || line.mroute.preference <= installed;
    if (isTop && cause && couldDecide) troubles_.push_back({place, *cause, false});
  }
  if (installed != 0) return;
  for (const Way& way : waysOf(router_, route)) addInterface(way.link, depth);
}

Explainer::Cause Explainer::explainLine(const Resolution& line, U8 installed, unsigned depth) {
  const std::size_t place = e_.steps.size();
  Step* step = add(Kind::line, depth);
  step->line = line;
  step->prefix = Lumo::Prefix(line.mroute.prefix.address.v4Addr(), line.mroute.prefix.length);
  step->state = stateOf(line, installed);
  if (line.fault) {
    step->fault = faultText(*line.fault);
    return explainFault(line, place, depth + 1);
  }
  explainThrough(line, depth + 1);
  return std::nullopt;
}

std::string Explainer::faultText(mrib::Unresolved fault) const {
  fault.anotherResolves = false;  // its own step says so
  return (fault.reason == mrib::Reason::heldBack ? "is " : "does not resolve: ") + why_.of(fault);
}

/// What is behind a line that does not resolve.
Explainer::Cause Explainer::explainFault(const Resolution& line, std::size_t place, unsigned depth) {
  if (line.fault->reason == mrib::Reason::heldBack) {
    auto circle = router_.agent().circle(line.mroute);
    if (!circle.empty()) std::rotate(circle.begin(), circle.begin() + 1, circle.end());
    for (const mrib::Mroute& each : circle) {
      if (e_.steps.size() > mostSteps) break;
      Step* step = add(Kind::onCircle, depth);
      step->line = Resolution{each, {}, {}, {}, {}, false};
      step->prefix = Lumo::Prefix(each.prefix.address.v4Addr(), each.prefix.length);
    }
    return place;
  }
  if (const auto* name = std::get_if<std::string>(&line.mroute.rpf)) {
    for (const auto& [index, entry] : router_.mirror().topology().links.all()) {
      if (entry.value.link.name == *name) addInterface(index, depth);
    }
  }
  if (!line.address || KernelFeed::isStandIn(*line.address)) return place;
  const bool byAddress = std::holds_alternative<Lumo::IpGenAddr>(line.mroute.rpf);
  if (byAddress) addInterface(why_.linkOf(*line.address), depth);
  const U32 longerThan = line.match ? line.match->length() : ~U32{0};
  return addUnresolved(*line.address, longerThan, depth, false).value_or(place);
}

/// The route that a line resolves through. An interface is where it ends: what makes it lead back to itself
/// is nobody's concern.
void Explainer::explainThrough(const Resolution& line, unsigned depth) {
  if (std::holds_alternative<std::string>(line.mroute.rpf)) {
    std::set<U32> links;
    for (const mrib::NextHop& hop : line.nextHops) links.insert(hop.link);
    for (const U32 link : links) addInterface(link, depth);
    return;
  }
  const mrib::Route* route = line.match ? router_.agent().route(*line.match) : nullptr;
  if (!route || e_.steps.size() > mostSteps) return;
  Step* step = add(Kind::through, depth);
  step->line = line;
  step->route = *route;
  step->prefix = route->prefix;
  const auto [known, isNew] = explained_.try_emplace(route->prefix, Explained{e_.steps.size(), {}});
  if (isNew) {
    explainRoute(*route, depth + 1);
  } else {
    step->seen = known->second.step;
  }
}

// ---- Interfaces ----

void Explainer::addInterface(U32 index, unsigned depth) {
  const kernel::Topology& topology = router_.mirror().topology();
  const kernel::Link* link = topology.link(index);
  if (!link) return;
  Explanation::Interface interface;
  interface.index = index;
  interface.name = link->name;
  interface.up = link->up;
  interface.carrier = link->lowerUp;
  const auto& all = topology.addresses.all();
  for (auto at = all.lower_bound({index, {}, 0, {}}); at != all.end(); ++at) {
    const kernel::Address& a = at->second.value;
    if (a.link != index) break;
    if (a.local.af() != e_.decision.source.af()) continue;
    interface.addresses.push_back(a.local.stringValue() + '/' + std::to_string(a.length));
  }
  add(Kind::interface, depth)->interface = std::move(interface);
}

// ---- What else there is to say ----

void Explainer::explainUnicast() {
  const RpfAnswer answer = router_.inUnicast(e_.decision.source);
  Step* step = add(Kind::unicast, 0);
  if (!answer.answer) return;
  step->unicast = *answer.answer;
  step->prefix = answer.prefix;
  if (e_.decision.table != RpfAnswer::Table::unicast) return;
  std::set<U32> links;
  for (const kernel::Hop& hop : answer.answer->hops) links.insert(hop.link);
  for (const U32 link : links) addInterface(link, 1);
}

/// On the interfaces by which the MRIB lets packets in, or the one that is asked about.
void Explainer::explainKernel() {
  std::set<U32> links;
  for (const Way& way : e_.decision.ways) links.insert(way.link);
  if (e_.incoming) links = {*e_.incoming};
  links.erase(0);
  for (const U32 link : links) {
    KernelVerdict verdict = kernelVerdict(router_, *kernel_, e_.decision.source.v4Addr(), link);
    add(Kind::kernelCheck, 0)->kernel = verdict;
    if (verdict.settings) add(Kind::forwarding, 0)->kernel = std::move(verdict);
  }
}

}  // namespace host
