#include "ConfigCheck.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <unordered_map>

#include "Escape.h"

namespace host {

namespace {

struct PrefixHash {
  std::size_t operator()(const Lumo::Prefix& p) const { return p.hash(); }
};

/// The address that an RPF resolves by; nothing for an interface without one.
std::optional<Lumo::IpAddr> rpfAddress(const MrouteLine& line, const KernelState& kernel) {
  if (const auto* address = std::get_if<Lumo::IpAddr>(&line.rpf)) return *address;
  const Link* link = kernel.link(std::get<std::string>(line.rpf));
  if (!link) return std::nullopt;
  for (const Address& a : kernel.addresses) {
    if (a.link == link->index && !a.secondary) return a.address;
  }
  return std::nullopt;
}

/// The configured prefixes and the edges between them.
class Graph {
 public:
  struct Edge {
    U32 to;
    const MrouteLine* by;
  };

  Graph(const std::vector<MrouteLine>& lines, const KernelState& kernel) {
    for (const MrouteLine& line : lines) {
      if (node_.try_emplace(line.prefix, static_cast<U32>(prefixes_.size())).second) {
        prefixes_.push_back(line.prefix);
        lengths_[line.prefix.length()] = true;
      }
    }
    edges_.resize(prefixes_.size());
    for (const MrouteLine& line : lines) {
      if (const auto address = rpfAddress(line, kernel)) addEdges(line, *address);
    }
  }

  /// The edges of some circle in their order, or none: a depth-first walk without recursion.
  std::vector<Edge> circle() const {
    enum Mark : U8 { unseen, open, done };
    std::vector<Mark> mark(prefixes_.size(), unseen);
    struct Step {
      U32 node;
      std::size_t next;
    };
    std::vector<Step> path;
    for (U32 start = 0; start < prefixes_.size(); ++start) {
      if (mark[start] != unseen) continue;
      path.push_back({start, 0});
      mark[start] = open;
      while (!path.empty()) {
        Step& step = path.back();
        if (step.next == edges_[step.node].size()) {
          mark[step.node] = done;
          path.pop_back();
          continue;
        }
        const U32 to = edges_[step.node][step.next++].to;
        if (mark[to] == unseen) {
          mark[to] = open;
          path.push_back({to, 0});
        } else if (mark[to] == open) {
          std::vector<Edge> edges;
          auto first = std::find_if(path.begin(), path.end(), [&](const Step& s) { return s.node == to; });
          for (; first != path.end(); ++first) edges.push_back(edges_[first->node][first->next - 1]);
          return edges;
        }
      }
    }
    return {};
  }

 private:
  void addEdges(const MrouteLine& line, Lumo::IpAddr address) {
    const U32 from = node_.at(line.prefix);
    for (U32 length = 0; length <= Lumo::Prefix::maxLength; ++length) {
      if (!lengths_[length]) continue;
      const auto to = node_.find(Lumo::Prefix(address, length));
      if (to != node_.end() && to->second != from) edges_[from].push_back({to->second, &line});
    }
  }

  std::unordered_map<Lumo::Prefix, U32, PrefixHash> node_;
  std::vector<Lumo::Prefix> prefixes_;
  std::array<bool, Lumo::Prefix::maxLength + 1> lengths_{};
  std::vector<std::vector<Edge>> edges_;
};

}  // namespace

std::optional<std::string> findCircle(const std::vector<MrouteLine>& lines, const KernelState& kernel) {
  const std::vector<Graph::Edge> circle = Graph(lines, kernel).circle();
  if (circle.empty()) return std::nullopt;
  std::string text = "these routes could resolve through each other in a circle:";
  for (const Graph::Edge& edge : circle) {
    text += fmt::format(" {} (line {}, through {}) ->", edge.by->prefix.stringValue(), edge.by->line,
                        edge.by->rpfText());
  }
  return text + ' ' + circle.front().by->prefix.stringValue();
}

std::vector<std::string> warningsFor(const std::vector<MrouteLine>& lines, const KernelState& kernel) {
  std::unordered_map<Lumo::Prefix, const KernelRoute*, PrefixHash> connected;  // those that are configured
  for (const MrouteLine& line : lines) connected.emplace(line.prefix, nullptr);
  for (const KernelRoute& route : kernel.routes) {
    if (!route.connected) continue;
    if (const auto it = connected.find(route.prefix); it != connected.end()) it->second = &route;
  }
  std::vector<std::string> warnings;
  for (const MrouteLine& line : lines) {
    if (const KernelRoute* route = connected.at(line.prefix)) {
      const Link* link = kernel.link(route->nextHops.front().link);
      warnings.push_back(fmt::format(
          "line {}: {} is directly connected on {}: once it resolves, the configured RPF replaces the "
          "connected one, so that packets from hosts on that subnet fail the check unless they come in by {}",
          line.line, line.prefix.stringValue(), link ? escaped(link->name) : "?", line.rpfText()));
    }
    if (const auto* name = std::get_if<std::string>(&line.rpf); name && !kernel.link(*name)) {
      warnings.push_back(
          fmt::format("line {}: interface {} does not exist: kept, not resolved", line.line, line.rpfText()));
    }
  }
  return warnings;
}

}  // namespace host
