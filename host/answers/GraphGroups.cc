#include "GraphGroups.h"

#include <algorithm>
#include <map>
#include <tuple>

namespace host {

namespace {

using Edge = Graph::Edge;
using Kind = Graph::Node::Kind;

constexpr std::size_t examples = 3;
constexpr std::size_t edgesANode = 2;  // of more than that, a picture is wool

/// How alike nodes of a group have to be.
struct Likeness {
  bool rpf;         ///< their lines name the same RPF with the same preference
  bool ends;        ///< what leads nowhere is the same
  bool interfaces;  ///< they end at the same interfaces
  unsigned steps;   ///< their ways are alike for so many steps
};
constexpr Likeness likenesses[] = {
    {true, true, true, 32},   {false, true, true, 32},  {false, false, true, 32},
    {false, false, true, 3},  {false, false, true, 2},  {false, false, true, 1},
    {false, false, false, 3}, {false, false, false, 1}, {false, false, false, 0}};

/// Which group each node is in, by number.
using Groups = std::vector<U32>;

/// What an edge looks like, for those who don't know who it is from.
using Look = std::tuple<Edge::State, std::optional<mrib::Reason>, std::string_view, U32, U32>;

Look lookOf(const Edge& edge, const Likeness& likeness, const Groups& groups) {
  if (!likeness.rpf) return {edge.state, edge.reason, {}, 0, groups[edge.to]};
  return {edge.state, edge.reason, edge.rpf, edge.preference, groups[edge.to]};
}

template <class Key>
U32 numberOf(std::map<Key, U32>& numbers, Key key) {
  return numbers.try_emplace(std::move(key), static_cast<U32>(numbers.size())).first->second;
}

/// Groups by what nodes are, before it is seen where they lead.
Groups byKind(const Graph& graph, const Likeness& likeness, std::size_t& count) {
  std::map<std::tuple<Kind, bool, std::size_t>, U32> numbers;
  Groups groups;
  for (std::size_t i = 0; i < graph.nodes.size(); ++i) {
    const Graph::Node& node = graph.nodes[i];
    const bool isAlone = node.asked || (node.kind == Kind::end && likeness.ends) ||
                         (node.kind == Kind::interface && likeness.interfaces);
    groups.push_back(numberOf(numbers, std::make_tuple(node.kind, node.usable, isAlone ? i + 1 : 0)));
  }
  count = numbers.size();
  return groups;
}

/// Parts groups whose nodes lead to different groups.
Groups byWays(const Graph& graph, const Likeness& likeness, const Groups& before, std::size_t& count) {
  std::map<std::pair<U32, std::vector<Look>>, U32> numbers;
  Groups groups;
  auto edge = graph.edges.begin();
  for (U32 i = 0; i < graph.nodes.size(); ++i) {
    std::vector<Look> looks;
    for (; edge != graph.edges.end() && edge->from == i; ++edge) {
      looks.push_back(lookOf(*edge, likeness, before));
    }
    std::sort(looks.begin(), looks.end());
    looks.erase(std::unique(looks.begin(), looks.end()), looks.end());
    groups.push_back(numberOf(numbers, std::make_pair(before[i], std::move(looks))));
  }
  count = numbers.size();
  return groups;
}

/// Nothing when it takes more than `most` groups.
std::optional<Groups> groupsOf(const Graph& graph, const Likeness& likeness, std::size_t most) {
  std::size_t count = 0;
  Groups groups = byKind(graph, likeness, count);
  for (unsigned step = 0; step < likeness.steps && count <= most; ++step) {
    const std::size_t before = count;
    groups = byWays(graph, likeness, groups, count);
    if (count == before) break;
  }
  return count <= most ? std::optional(std::move(groups)) : std::nullopt;
}

template <class T>
void keepIfSame(T& mine, const T& other) {
  if (mine != other) mine = T();
}

void join(Graph::Node& group, const Graph::Node& node) {
  group.count += node.count;
  if (group.names.size() < examples) group.names.push_back(node.names.front());
}

void join(Edge& group, const Edge& edge) {
  group.count += edge.count;
  keepIfSame(group.rpf, edge.rpf);
  keepIfSame(group.preference, edge.preference);
  keepIfSame(group.place, edge.place);
  keepIfSame(group.why, edge.why);
}

Graph joined(const Graph& graph, const Likeness& likeness, const Groups& groups) {
  Graph result;
  std::vector<U32> places(graph.nodes.size(), ~U32{0});  // by group
  for (std::size_t i = 0; i < groups.size(); ++i) {
    U32& place = places[groups[i]];
    if (place != ~U32{0}) {
      join(result.nodes[place], graph.nodes[i]);
    } else {
      place = static_cast<U32>(result.nodes.size());
      result.nodes.push_back(graph.nodes[i]);
    }
  }
  std::map<std::pair<U32, Look>, U32> known;
  for (const Edge& edge : graph.edges) {
    const auto [at, isNew] = known.try_emplace({groups[edge.from], lookOf(edge, likeness, groups)},
                                               static_cast<U32>(result.edges.size()));
    if (!isNew) {
      join(result.edges[at->second], edge);
      continue;
    }
    result.edges.push_back(edge);
    result.edges.back().from = places[groups[edge.from]];
    result.edges.back().to = places[groups[edge.to]];
  }
  std::stable_sort(result.edges.begin(), result.edges.end(),
                   [](const Edge& a, const Edge& b) { return a.from < b.from; });
  return result;
}

}  // namespace

Graph grouped(const Graph& graph, std::size_t most) {
  if (graph.nodes.size() <= most && graph.edges.size() <= edgesANode * most) return graph;
  Graph result;
  for (const Likeness& likeness : likenesses) {
    const bool isLast = &likeness == std::end(likenesses) - 1;
    const auto groups = groupsOf(graph, likeness, isLast ? graph.nodes.size() : most);
    if (!groups) continue;
    result = joined(graph, likeness, *groups);
    if (result.edges.size() <= edgesANode * result.nodes.size()) break;
  }
  return result;
}

}  // namespace host
