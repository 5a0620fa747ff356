#include "Graph.h"

#include <algorithm>
#include <unordered_map>

#include "Why.h"

namespace host {

namespace {

using Kind = Graph::Node::Kind;
using State = Graph::Edge::State;
using Lumo::Prefix;
using Lines = std::vector<mrib::Resolution>;

Prefix prefixOf(const mrib::Mroute& mroute) {
  return {mroute.prefix.address.v4Addr(), mroute.prefix.length};
}

std::string rpfText(const mrib::Mroute& mroute) {
  const auto* name = std::get_if<std::string>(&mroute.rpf);
  return name ? *name : std::get<Lumo::IpGenAddr>(mroute.rpf).stringValue();
}

/// Why a line that resolves is not in force.
mrib::Unresolved waitingOf(const mrib::Resolution& line, const Lines& all) {
  const auto better = std::find_if(all.begin(), all.end(), [](const auto& other) { return other.inForce; });
  mrib::Unresolved u{line.mroute, mrib::Reason::unsettled, *line.address, {}};
  if (better == all.end() || better->mroute.preference >= line.mroute.preference) return u;
  u.reason = mrib::Reason::waiting;
  u.installed = static_cast<U8>(better->mroute.preference);
  return u;
}

/// A graph on its way: what is named for the first time becomes a node.
class Drawing {
 public:
  explicit Drawing(const Router& router) : router_(router), why_(router) {
    for (const mrib::Link& link : router.agent().links()) links_.emplace(link.name, link.index);
  }

  /// A prefix, and where it leads.
  void draw(const Prefix& prefix) {
    const U32 from = at(prefix);
    const Lines lines = router_.agent().resolutions(prefix);
    for (const mrib::Resolution& line : lines) addLine(from, line, lines);
    const mrib::Route* route = router_.agent().route(prefix);
    const bool isConfigured =
        std::any_of(lines.begin(), lines.end(), [](const auto& l) { return l.inForce; });
    if (!route || isConfigured) return;
    graph_.nodes[from].kind = Kind::connected;
    for (const mrib::NextHop& hop : route->nextHops) addWay(from, hop.link);
  }
  void ask(const Prefix& prefix) { graph_.nodes[at(prefix)].asked = true; }
  void askUnicast(const RpfAnswer& answer) {
    const bool usable = answer.status == RpfAnswer::Status::found;
    const U32 from = add(Kind::unicast, answer.prefix.stringValue(), usable);
    graph_.nodes[from].asked = true;
    for (const kernel::Hop& hop : answer.answer->hops) {
      addWay(from, hop.link, hop.gateway == Lumo::IpGenAddr() ? "" : hop.gateway.stringValue());
    }
  }
  /// Draws what has only been named, and so on.
  void follow() {
    while (!named_.empty()) {
      const Prefix next = named_.back();
      named_.pop_back();
      draw(next);
    }
  }
  /// When all has been followed: the lines of other prefixes that lead to what was asked about.
  void addDependents() {
    const auto drawn = static_cast<U32>(graph_.nodes.size());
    std::optional<Prefix> last;
    for (const mrib::Mroute& mroute : router_.agent().mroutes()) {
      const Prefix prefix = prefixOf(mroute);
      if (std::exchange(last, prefix) == prefix) continue;
      const auto known = prefixes_.find(prefix);
      if (known == prefixes_.end() || known->second >= drawn) addDependent(prefix);
    }
  }

  Graph take() && {
    std::stable_sort(graph_.edges.begin(), graph_.edges.end(),
                     [](const auto& a, const auto& b) { return a.from < b.from; });
    return std::move(graph_);
  }

 private:
  U32 add(Kind kind, std::string name, bool usable) {
    graph_.nodes.push_back({kind, usable, false, {std::move(name)}});
    return static_cast<U32>(graph_.nodes.size() - 1);
  }
  /// The node that a key stands for in one of the tables.
  template <class Table, class Make>
  static U32 found(Table& table, const typename Table::key_type& key, Make make) {
    const auto known = table.find(key);
    return known != table.end() ? known->second : table.emplace(key, make()).first->second;
  }
  U32 at(const Prefix& prefix) {
    return found(prefixes_, prefix, [&] {
      named_.push_back(prefix);
      return add(Kind::configured, prefix.stringValue(), router_.agent().route(prefix) != nullptr);
    });
  }
  U32 interface(U32 index) {
    return found(interfaces_, index, [&] {
      const mrib::Link* link = router_.agent().link(index);
      return link ? add(Kind::interface, link->name, link->up && link->carrier)
                  : add(Kind::end, "an interface that is gone", false);
    });
  }
  /// What a line leads to: its longest match, where that is one which people know of.
  U32 targetOf(const mrib::Resolution& line) {
    if (line.match && !KernelFeed::isStandIn(*line.match)) return at(*line.match);
    const std::string rpf = rpfText(line.mroute);
    const auto link = links_.find(rpf);
    if (link != links_.end()) return interface(link->second);
    return found(ends_, rpf, [&] { return add(Kind::end, rpf, false); });
  }
  void addLine(U32 from, const mrib::Resolution& line, const Lines& all) {
    Graph::Edge edge{from, targetOf(line), State::inForce, rpfText(line.mroute), line.mroute.preference};
    edge.place = router_.configuration().placeOf(line.mroute.origin);
    if (!line.inForce) {
      const mrib::Unresolved u = line.fault ? *line.fault : waitingOf(line, all);
      edge.state = line.fault ? State::unresolved : State::waiting;
      edge.reason = u.reason;
      edge.why = why_.of(u);
    }
    graph_.edges.push_back(std::move(edge));
  }
  void addWay(U32 from, U32 link, std::string gateway = {}) {
    graph_.edges.push_back({from, interface(link), State::inForce, std::move(gateway)});
  }
  void addDependent(const Prefix& prefix) {
    const Lines lines = router_.agent().resolutions(prefix);
    for (const mrib::Resolution& line : lines) {
      const auto match = line.match ? prefixes_.find(*line.match) : prefixes_.end();
      if (match != prefixes_.end() && graph_.nodes[match->second].asked) addLine(at(prefix), line, lines);
    }
  }

  struct PrefixHash {
    std::size_t operator()(const Prefix& p) const { return p.hash(); }
  };

  const Router& router_;
  const Why why_;
  Graph graph_;
  std::vector<Prefix> named_;
  std::unordered_map<std::string, U32> links_;  // indices by name
  // Nodes:
  std::unordered_map<Prefix, U32, PrefixHash> prefixes_;
  std::unordered_map<U32, U32> interfaces_;
  std::unordered_map<std::string, U32> ends_;
};

/// All prefixes that are configured, or have a route, in order.
std::vector<Prefix> prefixesOf(const mrib::Agent& agent) {
  std::vector<Prefix> prefixes;
  for (const mrib::Mroute& mroute : agent.mroutes()) prefixes.push_back(prefixOf(mroute));
  for (const mrib::Route& route : agent.routes()) {
    if (!KernelFeed::isStandIn(route.prefix)) prefixes.push_back(route.prefix);
  }
  std::sort(prefixes.begin(), prefixes.end());
  prefixes.erase(std::unique(prefixes.begin(), prefixes.end()), prefixes.end());
  return prefixes;
}

/// Configured prefixes that would answer for a source before `answer` does if they resolved.
std::vector<Prefix> hopesOf(const mrib::Agent& agent, Lumo::IpAddr source, const mrib::Route* answer) {
  std::vector<Prefix> hopes;
  for (int length = Prefix::maxLength; length > (answer ? answer->prefix.length() : -1); --length) {
    const Prefix prefix(source, static_cast<U32>(length));
    if (!agent.resolutions(prefix).empty()) hopes.push_back(prefix);
  }
  return hopes;
}

Graph asked(Drawing&& drawing) {
  drawing.follow();
  drawing.addDependents();
  return std::move(drawing).take();
}

}  // namespace

Graph graphOf(const Router& router) {
  Drawing drawing(router);
  for (const Prefix& prefix : prefixesOf(router.agent())) drawing.draw(prefix);
  return std::move(drawing).take();
}

Graph graphOf(const Router& router, const Prefix& prefix) {
  if (!router.agent().route(prefix) && router.agent().resolutions(prefix).empty()) return {};
  Drawing drawing(router);
  drawing.ask(prefix);
  return asked(std::move(drawing));
}

Graph graphOf(const Router& router, const Lumo::IpGenAddr& source) {
  const RpfAnswer answer = router.lookUp(source);
  Drawing drawing(router);
  if (answer.table == RpfAnswer::Table::unicast) drawing.askUnicast(answer);
  if (answer.route) drawing.ask(answer.route->prefix);
  if (source.af() == Lumo::ipv4()) {
    for (const Prefix& hope : hopesOf(router.agent(), source.v4Addr(), router.agent().rpf(source.v4Addr()))) {
      drawing.ask(hope);
    }
  }
  return asked(std::move(drawing));
}

}  // namespace host
