#include "WhatIf.h"

#include <fmt/format.h>

#include <algorithm>

#include "ConfigEdit.h"
#include "Escape.h"
#include "Why.h"

namespace host {

using kernel::ImaginedKernel;
using Lumo::Prefix;

namespace {

template <class... F>
struct Overloaded : F... {
  using F::operator()...;
};
template <class... F>
Overloaded(F...) -> Overloaded<F...>;

/// With what is being done to it.
template <class F>
void naming(const std::string& change, F f) {
  try {
    f();
  } catch (const Error& e) {
    throw Error('"' + escaped(change) + "\": " + e.what());
  }
}

}  // namespace

WhatIf::WhatIf(const Router& router, std::span<const std::string> texts, const Setting& setting)
    : before_(router), setting_(setting), configuration_(router.configuration()) {
  std::vector<ImaginedChange> changes;
  for (const std::string& text : texts) naming(text, [&] { changes.push_back(parseChange(text)); });
  imagine(changes, [&](std::size_t i, const auto& f) { naming(texts[i], f); });
}

WhatIf::WhatIf(const Router& router, const std::string& link, const Setting& setting)
    : before_(router), setting_(setting), configuration_(router.configuration()) {
  const ImaginedChange down = LinkWords{link, false};
  imagine(std::span(&down, 1), [](std::size_t, const auto& f) { f(); });
}

void WhatIf::imagine(std::span<const ImaginedChange> changes, const Named& named) {
  ImaginedKernel kernel(before_.mirror(), setting_.isOn);
  for (std::size_t i = 0; i < changes.size(); ++i) named(i, [&] { take(changes[i], kernel); });
  for (const Flow& flow : setting_.flows) {
    for (U32 length = 0; length <= Prefix::maxLength; ++length) kernel.take(Prefix(flow.source, length));
  }
  std::vector<Prefix> prefixes = kernel.prefixes();
  for (std::size_t i = 0; i < changes.size(); ++i) named(i, [&] { apply(changes[i], kernel); });
  for (const Prefix& prefix : kernel.prefixes()) prefixes.push_back(prefix);
  start(kernel);
  compareRoutes();
  compareUnicast(std::move(prefixes));
  compareUnresolved();
  compareFlows();
}

/// The imagined kernel takes over what the change may concern, to what becomes of it.
void WhatIf::take(const ImaginedChange& change, ImaginedKernel& kernel) {
  const auto over = [&](const std::string& link) {
    const std::set<U32> links = kernel.withFollowers(kernel.linkNamed(link));
    unicastLeft_ += kernel.takeOver(links, setting_.mostUnicast);
  };
  std::visit(Overloaded{[&](const LinkWords& words) { over(words.link); },
                        [&](const AddressWords& words) {
                          over(words.link);
                          kernel.take(Prefix(words.local, words.length.value_or(Prefix::maxLength)));
                        },
                        [&](const kernel::RouteRequest& request) { kernel.take(request.prefix); },
                        [](const ConfigurationWords&) {}},
             change);
}

void WhatIf::apply(const ImaginedChange& change, ImaginedKernel& kernel) {
  const auto applyAddress = [&](const AddressWords& words) {
    const U32 link = kernel.linkNamed(words.link);
    if (!words.add) return kernel.deleteAddress(link, words.local, words.length);
    kernel.addAddress(link, words.local, *words.length);
  };
  std::visit(
      Overloaded{[&](const LinkWords& words) { kernel.linkIs(kernel.linkNamed(words.link), words.up); },
                 applyAddress, [&](const kernel::RouteRequest& r) { kernel.changeRoute(r); },
                 [&](const ConfigurationWords& words) { configure(words.command, kernel); }},
      change);
}

/// With the addresses that there are by then.
void WhatIf::configure(const std::string& command, const ImaginedKernel& kernel) {
  try {
    configuration_ = edited(configuration_, std::span(&command, 1));
  } catch (const ConfigurationError& e) {
    throw Error(e.errors().front().text);
  }
  std::vector<OwnSubnet> subnets;
  kernel.forEachAddress([&](const auto& address, const auto& link) { addOwnSubnet(subnets, address, link); });
  const auto errors = impossibleNextHops(configuration_, subnets);
  if (!errors.empty()) throw Error(fmt::format("{}", fmt::join(messagesOf(errors), "\n")));
}

void WhatIf::start(const ImaginedKernel& kernel) {
  mirror_ = kernel.mirrored();
  after_ = std::make_unique<Router>(*mirror_, [] { return Nanos{0}; });
  after_->conclude(0);
  std::vector<std::string> reasons = after_->configurationIs(std::move(configuration_), 0);
  if (reasons.empty()) after_->conclude(0);
  for (std::string& fault : after_->takeFaults()) reasons.push_back(std::move(fault));
  if (!reasons.empty()) throw Error(fmt::format("{}", fmt::join(reasons, "\n")));
}

// ---- Before and after ----

namespace {

/// The ways of a route, without what only its router means by them.
std::vector<mrib::NextHop> waysOf(const Router& router, const mrib::Route& route) {
  std::vector<mrib::NextHop> ways(route.nextHops.begin(), route.nextHops.end());
  for (mrib::NextHop& way : ways) {
    if (router.isAttached(way)) way.address = {};
  }
  std::sort(ways.begin(), ways.end());
  return ways;
}

std::vector<const mrib::Route*> routesOf(const Router& router) {
  std::vector<const mrib::Route*> routes;
  for (const mrib::Route& route : router.agent().routes()) {
    if (!KernelFeed::isStandIn(route.prefix)) routes.push_back(&route);
  }
  std::sort(routes.begin(), routes.end(), [](const auto* a, const auto* b) { return a->prefix < b->prefix; });
  return routes;
}

bool isConfigured(const Router& router, const mrib::Mroute& mroute) {
  const auto all = router.agent().resolutions(Prefix(mroute.prefix.address.v4Addr(), mroute.prefix.length));
  return std::any_of(all.begin(), all.end(), [&](const mrib::Resolution& resolution) {
    return resolution.mroute.rpf == mroute.rpf && resolution.mroute.preference == mroute.preference;
  });
}

}  // namespace

void WhatIf::compareRoutes() {
  const auto same = [&](const mrib::Route& a, const mrib::Route& b) {
    return a.type == b.type && a.preference == b.preference && waysOf(before_, a) == waysOf(*after_, b);
  };
  const auto had = routesOf(before_);
  const auto has = routesOf(*after_);
  auto was = had.begin();
  for (const mrib::Route* route : has) {
    for (; was != had.end() && (*was)->prefix < route->prefix; ++was) changes_.push_back({*was, nullptr});
    const bool isThere = was != had.end() && (*was)->prefix == route->prefix;
    if (!isThere || !same(**was, *route)) changes_.push_back({isThere ? *was : nullptr, route});
    was += isThere;
  }
  for (; was != had.end(); ++was) changes_.push_back({*was, nullptr});
}

void WhatIf::compareUnicast(std::vector<Prefix> prefixes) {
  for (const auto* mirror : {&before_.mirror(), &after_->mirror()}) {
    for (const auto& [key, entry] : mirror->topology().addresses.all()) {
      const auto& local = entry.value.local;
      if (local.af() == Lumo::ipv4()) prefixes.push_back(Prefix(local.v4Addr(), Prefix::maxLength));
    }
  }
  std::sort(prefixes.begin(), prefixes.end());
  prefixes.erase(std::unique(prefixes.begin(), prefixes.end()), prefixes.end());
  for (const Prefix& prefix : prefixes) {
    if (before_.mirror().answer(prefix) != after_->mirror().answer(prefix)) unicast_.push_back(prefix);
  }
}

void WhatIf::compareUnresolved() {
  const auto had = before_.agent().unresolved();
  const auto has = after_->agent().unresolved();
  unresolved_ = newErrors(had, has);
  resolved_ = newErrors(has, had);
  std::erase_if(resolved_, [&](const mrib::Unresolved& u) { return !isConfigured(*after_, u.mroute); });
}

void WhatIf::compareFlows() {
  using Verdict = FlowChange::Verdict;
  const auto accepts = [](const RpfAnswer& answer, U32 link) {
    if (answer.status != RpfAnswer::Status::found) return false;
    const auto isIt = [&](const auto& way) { return way.link == link; };
    if (answer.answer) return std::any_of(answer.answer->hops.begin(), answer.answer->hops.end(), isIt);
    return std::any_of(answer.route->nextHops.begin(), answer.route->nextHops.end(), isIt);
  };
  for (const Flow& flow : setting_.flows) {
    const RpfAnswer was = before_.lookUp(Lumo::IpGenAddr(flow.source));
    const RpfAnswer is = after_->lookUp(Lumo::IpGenAddr(flow.source));
    const bool wasRight = accepts(was, flow.link);
    const bool isRight = accepts(is, flow.link);
    if (wasRight == isRight) continue;
    const Verdict lost = is.status == RpfAnswer::Status::found ? Verdict::moves : Verdict::dies;
    flows_.push_back({flow, isRight ? Verdict::recovers : lost, was, is});
  }
}

}  // namespace host
