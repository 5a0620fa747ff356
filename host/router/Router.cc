#include "Router.h"

#include <fmt/format.h>

#include <algorithm>

#include "ConfigText.h"
#include "Escape.h"
#include "Names.h"

namespace host {

using kernel::Answer;
using Lumo::IpAddr;

namespace {

constexpr std::size_t prefixesATurn = 2000;
constexpr Nanos mostDelay = milliseconds(100);  // of what is taken in several turns
constexpr Nanos settleAfter = milliseconds(50);
constexpr Nanos settleAtLatest = seconds(1);  // when changes never end
constexpr Nanos restAfterSettling = 19;       // times as long: a twentieth of the time

void tellMroutes(mrib::Transaction& t, const Configuration& configuration, const KernelFeed& feed) {
  t.mrouteDelAll();
  for (const MrouteLine& line : configuration.mroutes) {
    if (const auto* address = std::get_if<IpAddr>(&line.rpf)) {
      t.mroute(line.prefix, Lumo::IpGenAddr(*address), line.preference, line.origin);
    } else {
      t.mroute(line.prefix, feed.agentName(std::get<std::string>(line.rpf)), line.preference, line.origin);
    }
  }
}

std::vector<std::string> textsOf(const mrib::CommitResult& result) {
  std::vector<std::string> texts;
  for (const mrib::Refusal& refusal : result.refusals) texts.push_back(refusal.text);
  if (result.refusalCount > texts.size()) {
    texts.push_back(fmt::format("and {} more", result.refusalCount - texts.size()));
  }
  return texts;
}

mrib::Agent::Options optionsFor(const Configuration* const* naming) {
  mrib::Agent::Options options;
  options.originText = [naming](U64 origin) { return (*naming)->placeOf(origin); };
  return options;
}

}  // namespace

U8 preferenceOf(U8 protocol) {
  static const std::map<std::string, U8> distances{
      {"kernel", 0}, {"boot", 1},   {"static", 1}, {"dhcp", 1},   {"ra", 1},    {"redirect", 1},
      {"bgp", 20},   {"eigrp", 90}, {"ospf", 110}, {"isis", 115}, {"rip", 120}, {"babel", 100}};
  const auto at = distances.find(kernel::protocolName(protocol));
  return at == distances.end() ? U8{200} : at->second;
}

Router::Router(kernel::Mirror& mirror, Clock clock)
    : mirror_(mirror), clock_(std::move(clock)), feed_(mirror), agent_(optionsFor(&naming_)) {}

// ---- The kernel ----

Nanos Router::turn(Nanos now) {
  woken_ = false;
  if (!mirror_.isSynced()) return ~Nanos{0};
  follow(now);
  if (!isTaken_) return now;
  return settle(now);
}

void Router::conclude(Nanos now) {
  while (turn(now) <= now) {
  }
  if (agent_.mayDiffer()) agent_.settle();
}

/// What the mirror has changed goes to the agent when it is whole, unless it never is. What was named, by
/// events or by the links that changed, need not wait for a walk over the whole table.
void Router::follow(Nanos now) {
  feed_.hurry(mirror_);
  const kernel::Mirror::Changes changes = mirror_.takeChanges(prefixesATurn);
  isTaken_ = changes.complete;
  const bool isNews = !changes.prefixes.empty() || !changes.links.empty() || !changes.addresses.empty();
  if (isNews && !unicastChanged_) pendingSince_ = now;
  unicastChanged_ = unicastChanged_ || isNews;
  revision_ += isNews;
  contextChanges_ += !changes.links.empty() || !changes.addresses.empty();
  feed_.tell(changes, pending_);
  if (!unicastChanged_ && ready_) {
    if (isTaken_) mirror_.takeNews();  // what has changed nothing is the cause of nothing
    return;
  }
  const bool isUrgent = changes.named && !pending_.empty();
  if (isTaken_ || (ready_ && (isUrgent || now - pendingSince_ > mostDelay))) commit(now);
}

void Router::commit(Nanos now) {
  if (feed_.nameChanges() != nameChanges_) renameMroutes(pending_);
  mrib::CommitResult result = agent_.commit(pending_);
  for (std::string& text : textsOf(result)) faults_.push_back(std::move(text));
  pending_.clear();
  unicastChanged_ = false;
  ready_ = true;
  if (feed_.hasFormer()) addOtherwise(result.changes);
  const kernel::News news = isTaken_ ? mirror_.takeNews() : mirror_.news();  // the rest has the same cause
  committed(result, now, [&] { return news.text(); });
  feed_.forget();
}

/// A route over a link that has another name now, or by an address that has become the router's own, is the
/// same to the agent, but not to those who are told of changes.
void Router::addOtherwise(std::vector<mrib::Change>& changes) const {
  std::set<Lumo::Prefix> told;
  for (const mrib::Change& change : changes) told.insert(change.prefix());
  for (const mrib::Route& route : agent_.routes()) {
    const bool otherwise = std::any_of(route.nextHops.begin(), route.nextHops.end(),
                                       [&](const auto& hop) { return feed_.isOtherwise(hop); });
    if (otherwise && !told.contains(route.prefix)) changes.push_back({route, route});
  }
}

void Router::committed(const mrib::CommitResult& result, Nanos now, const Cause& cause) {
  changedAt_ = now;
  if (doubtSince_ == 0 && result.mayDiffer) doubtSince_ = now;
  tell(result.changes, false, cause);
}

U64 Router::subscribe(Listener listener) {
  listeners_.emplace(++lastSubscription_, std::move(listener));
  return lastSubscription_;
}

void Router::tell(std::span<const mrib::Change> changes, bool settled, const Cause& cause) {
  ++generation_;
  ++revision_;
  const News news{{generation_, changes, settled}, cause};
  for (const auto& [subscription, listener] : listeners_) listener(news);
}

Nanos Router::settle(Nanos now) {
  if (!agent_.mayDiffer()) return ~Nanos{0};
  const Nanos due =
      std::max(std::min(changedAt_ + settleAfter, doubtSince_ + settleAtLatest), earliestSettle_);
  if (now < due) return due;
  const Nanos start = clock_();
  const mrib::SettleResult result = agent_.settle();
  earliestSettle_ = now + (clock_() - start) * (restAfterSettling + 1);
  doubtSince_ = 0;
  if (!result.changes.empty()) tell(result.changes, true, [] { return "settled"; });
  return ~Nanos{0};
}

// ---- The configuration ----

/// Alternative names of links have changed, and lines may mean other links by them.
void Router::renameMroutes(mrib::Transaction& t) {
  nameChanges_ = feed_.nameChanges();
  tellMroutes(t, configuration_, feed_);
}

std::vector<std::string> Router::configurationIs(Configuration configuration, Nanos now,
                                                 const std::string& cause) {
  mrib::Transaction t;
  tellMroutes(t, configuration, feed_);
  naming_ = &configuration;
  const mrib::CommitResult result = agent_.commit(t);
  naming_ = &configuration_;
  if (!result) return textsOf(result);
  configuration_ = std::move(configuration);
  woken_ = true;
  ++contextChanges_;
  committed(result, now, [&] { return cause; });
  return {};
}

Router::Trial Router::tryConfiguration(const Configuration& configuration) const {
  const Configuration* naming = &configuration;
  mrib::Agent agent(optionsFor(&naming));
  KernelFeed feed(mirror_);
  mrib::Transaction t;
  feed.tell(everythingOf(mirror_), t);
  tellMroutes(t, configuration, feed);
  const mrib::CommitResult result = agent.commit(t);
  if (!result) return {textsOf(result), {}};
  if (result.mayDiffer) agent.settle();
  return {{}, agent.unresolved()};
}

std::vector<std::string> Router::warningsFor(const Configuration& configuration) const {
  std::vector<std::string> warnings;
  std::set<std::string> names;
  for (const mrib::Link& link : agent_.links()) names.insert(link.name);
  for (const MrouteLine& line : configuration.mroutes) {
    const auto* name = std::get_if<std::string>(&line.rpf);
    const std::string rpf = rpfText(line);
    const Answer& answer = mirror_.answer(line.prefix);
    if (answer.kind == Answer::Kind::attached) {
      const mrib::Link* link = agent_.link(answer.hops.front().link);
      warnings.push_back(
          fmt::format("{}: {} is directly connected on {}: once it resolves, the configured RPF replaces the "
                      "connected one, so "
                      "that packets from hosts on that subnet fail the check unless they come in by {}",
                      configuration.placeOf(line.origin), line.prefix.stringValue(),
                      link ? escaped(link->name) : "?", rpf));
    }
    if (name && !names.contains(feed_.agentName(*name))) {
      warnings.push_back(fmt::format("{}: interface {} does not exist: kept, not resolved",
                                     configuration.placeOf(line.origin), rpf));
    }
  }
  return warnings;
}

// ---- Questions ----

std::vector<mrib::Route> Router::routes() const {
  std::vector<mrib::Route> routes;
  for (const mrib::Route& route : agent_.routes()) {
    if (!KernelFeed::isStandIn(route.prefix)) routes.push_back(route);
  }
  std::sort(routes.begin(), routes.end(), [](const auto& a, const auto& b) { return a.prefix < b.prefix; });
  return routes;
}

const std::string* Router::linkName(const mrib::NextHop& hop, KernelFeed::When when) const {
  const std::string* former = when == KernelFeed::When::before ? feed_.formerName(hop.link) : nullptr;
  if (former) return former->empty() ? nullptr : former;
  const mrib::Link* link = agent_.link(hop.link);
  return link ? &link->name : nullptr;
}

RpfAnswer Router::inMrib(const Lumo::IpGenAddr& source) const {
  using enum RpfAnswer::Status;
  RpfAnswer answer;
  const mrib::Route* route = source.af() == Lumo::ipv4() ? agent_.rpf(source.v4Addr()) : nullptr;
  if (!route || KernelFeed::isStandIn(route->prefix)) return answer;
  answer.status = route->nextHops.empty() ? unreachable : found;
  answer.table = RpfAnswer::Table::mrib;
  answer.route = route;
  answer.prefix = route->prefix;
  return answer;
}

RpfAnswer Router::inUnicast(const Lumo::IpGenAddr& source) const {
  using enum RpfAnswer::Status;
  RpfAnswer answer;
  const Lumo::IpGenPrefix match = mirror_.longestMatch(source);
  if (match.empty()) return answer;
  const Answer& unicast = mirror_.answer(match);
  if (unicast.kind == Answer::Kind::throwing) return answer;
  answer.status = unicast.kind > Answer::Kind::gateway ? unreachable : found;
  answer.table = RpfAnswer::Table::unicast;
  answer.prefix = match;
  answer.answer = &unicast;
  return answer;
}

RpfAnswer Router::lookUp(const Lumo::IpGenAddr& source) const {
  const LookupMode mode = configuration_.lookupMode;
  if (mode == LookupMode::uribOnly) return inUnicast(source);
  const RpfAnswer multicast = inMrib(source);
  if (mode == LookupMode::mribOnly) return multicast;
  if (mode == LookupMode::mribThenUrib && multicast.route) return multicast;
  const RpfAnswer unicast = inUnicast(source);
  if (!unicast.answer || !multicast.route) return unicast.answer ? unicast : multicast;
  const bool unicastWins = mode == LookupMode::longerPrefix
                               ? unicast.prefix.length() > multicast.prefix.length()
                               : preferenceOf(unicast.answer->protocol) < multicast.route->preference;
  return unicastWins ? unicast : multicast;
}

void addOwnSubnet(std::vector<OwnSubnet>& subnets, const kernel::Address& a, const kernel::Link& link) {
  if (a.local.af() != Lumo::ipv4()) return;
  const bool isPointToPoint = a.peer != a.local;
  subnets.push_back({a.local.v4Addr(), isPointToPoint ? U32{Lumo::Prefix::maxLength} : a.length, link.name});
}

std::vector<OwnSubnet> ownSubnetsOf(const kernel::Mirror& mirror) {
  std::vector<OwnSubnet> subnets;
  mirror.topology().forEachOwn(mirror.settings().table, [&](const auto& address, const auto& link) {
    addOwnSubnet(subnets, address, link);
  });
  return subnets;
}

}  // namespace host
