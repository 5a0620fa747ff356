#include "GraphTree.h"

#include <algorithm>
#include <cstring>

namespace host::output {

namespace {

constexpr const char* bold = "1";
constexpr const char* red = "31";
constexpr const char* yellow = "33";
constexpr const char* dim = "2";

class Tree {
 public:
  Tree(const Json& graph, const TreeLook& look)
      : nodes_(graph.at("nodes")),
        look_(look),
        out_(nodes_.size()),
        in_(nodes_.size()),
        done_(nodes_.size()) {
    for (const Json& edge : graph.at("edges")) {
      out_[edge.at("from").get<std::size_t>()].push_back(&edge);
      in_[edge.at("to").get<std::size_t>()].push_back(&edge);
    }
  }

  /// From the interfaces to what depends on them.
  std::string whole() {
    std::vector<std::size_t> roots;
    Edges lost;
    for (std::size_t i = 0; i < nodes_.size(); ++i) {
      const bool isEnd = nodes_[i].at("kind") == "end";
      if (isEnd) lost.insert(lost.end(), in_[i].begin(), in_[i].end());
      if (!isEnd && leadsNowhere(i)) roots.push_back(i);
      done_[i] = isEnd;
    }
    std::stable_sort(roots.begin(), roots.end(), [&](auto a, auto b) { return comesBefore(a, b); });
    for (const std::size_t i : roots) root(nodeText(i), i);
    if (!lost.empty()) head(painted("Leading nowhere", red));
    below(lost, "");
    for (std::size_t i = 0; i < nodes_.size(); ++i) {
      if (!done_[i]) root(nodeText(i), i);  // those that only lead to one another
    }
    return std::move(text_);
  }
  /// From what was asked about to the interfaces, and then what depends on it.
  std::string asked() {
    for (std::size_t i = 0; i < nodes_.size(); ++i) {
      if (nodes_[i].at("asked") == false) continue;
      text_ += nodeText(i) + '\n';
      std::fill(done_.begin(), done_.end(), false);
      ways(i, "");
    }
    for (std::size_t i = 0; i < nodes_.size(); ++i) {
      const Edges edges = nodes_[i].at("asked") == true ? dependents(i) : Edges();
      if (!edges.empty()) head("What depends on " + labelOf(nodes_[i]).title);
      for (const Json* edge : edges) branch(dependentText(*edge), "", edge == edges.back());
    }
    return std::move(text_);
  }

 private:
  using Edges = std::vector<const Json*>;

  bool leadsNowhere(std::size_t node) const {
    const auto isOwn = [&](const Json* edge) { return edge->at("to") == node; };
    return std::all_of(out_[node].begin(), out_[node].end(), isOwn);
  }
  /// Interfaces first, by name, and eth2 before eth10.
  bool comesBefore(std::size_t a, std::size_t b) const {
    const bool isInterface = nodes_[a].at("kind") == "interface";
    if (isInterface != (nodes_[b].at("kind") == "interface")) return isInterface;
    const auto name = [&](std::size_t i) {
      return nodes_[i].at("names")[0].get_ref<const std::string&>().c_str();
    };
    return strverscmp(name(a), name(b)) < 0;
  }
  void head(const std::string& text) { text_ += (text_.empty() ? "" : "\n") + text + '\n'; }
  void root(const std::string& text, std::size_t node) {
    head(text);
    done_[node] = true;
    below(in_[node], "");
  }
  /// Whom some edges come from, what depends on that, and so on. A prefix is followed where it leads, or else
  /// where it would.
  void below(const Edges& edges, const std::string& indent) {
    for (const Json* edge : edges) {
      const auto from = edge->at("from").get<std::size_t>();
      const bool isLast = edge == edges.back();
      const bool isFollowed = edge->at("state") == "inForce" || nodes_[from].at("usable") == false;
      const bool isRepeated = done_[from] && isFollowed && !dependents(from).empty();
      branch(dependentText(*edge) + (isRepeated ? again() : ""), indent, isLast);
      if (!isFollowed || done_[from]) continue;
      done_[from] = true;
      below(in_[from], indent + bar(isLast));
    }
  }
  /// What a node leads through.
  void ways(std::size_t node, const std::string& indent) {
    done_[node] = true;
    for (const Json* edge : out_[node]) {
      const auto to = edge->at("to").get<std::size_t>();
      const bool isLast = edge == out_[node].back();
      const std::string by = edgeText(*edge);
      const bool isRepeated = done_[to] && to != node && !out_[to].empty();
      const std::string target = nodes_[to].at("kind") == "end" ? "" : arrow(by) + nodeText(to);
      branch(by + target + (isRepeated ? again() : ""), indent, isLast);
      if (!done_[to]) ways(to, indent + bar(isLast));
    }
  }
  /// The lines of others that lead to a node.
  Edges dependents(std::size_t node) const {
    Edges edges;
    std::copy_if(in_[node].begin(), in_[node].end(), std::back_inserter(edges),
                 [&](const Json* edge) { return edge->at("from") != node; });
    return edges;
  }

  void branch(const std::string& text, const std::string& indent, bool isLast) {
    const char* sign = look_.utf8 ? (isLast ? "\u2514\u2500 " : "\u251C\u2500 ") : isLast ? "`- " : "|- ";
    text_ += indent + sign + text + '\n';
  }
  const char* arrow(const std::string& by) const {
    return by.empty() ? "" : look_.utf8 ? " \u2192 " : " -> ";
  }
  std::string bar(bool isLast) const { return isLast ? "   " : look_.utf8 ? "\u2502  " : "|  "; }
  std::string again() const { return painted(look_.utf8 ? " \u2026 as above" : " ... as above", dim); }

  std::string dependentText(const Json& edge) const {
    const std::string by = edgeText(edge);
    return nodeText(edge.at("from").get<std::size_t>()) + (by.empty() ? "" : "  by " + by);
  }
  std::string nodeText(std::size_t i) const {
    const Json& node = nodes_[i];
    const Label label = labelOf(node);
    const bool isFault = node.at("usable") == false;
    const bool isBold = node.at("asked") == true || node.at("kind") == "interface";
    std::string text = isFault  ? painted(label.title, red)
                       : isBold ? painted(label.title, bold)
                                : label.title;
    return label.note.empty() ? text : text + "  " + painted(label.note, isFault ? red : dim);
  }
  std::string edgeText(const Json& edge) const {
    const Label label = labelOf(edge, nodes_[edge.at("from").get<std::size_t>()]);
    const std::string state = edge.at("state");
    if (state == "inForce") return label.title;
    if (state == "waiting") return painted(label.title + ", waits", yellow);
    const Json& place = edge.at("place");
    const std::string where = place.is_null() ? "" : " (" + place.get<std::string>() + ')';
    return painted(label.title + ": " + label.note + where, red);
  }
  std::string painted(const std::string& text, const char* colour) const {
    return look_.colour ? std::string("\033[") + colour + 'm' + text + "\033[m" : text;
  }

  const Json& nodes_;
  TreeLook look_;
  std::vector<Edges> out_;
  std::vector<Edges> in_;
  std::vector<bool> done_;
  std::string text_;
};

}  // namespace

std::string treeOf(const Json& graph, const TreeLook& look) {
  const auto& nodes = graph.at("nodes");
  const bool isAsked =
      std::any_of(nodes.begin(), nodes.end(), [](const Json& n) { return n.at("asked") == true; });
  Tree tree(graph, look);
  return isAsked ? tree.asked() : tree.whole();
}

}  // namespace host::output
