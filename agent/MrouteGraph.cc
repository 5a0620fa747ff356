#include <algorithm>
#include <set>

#include "inside/Mroutes.h"

// The graph of what could resolve through what. Its edges are not stored: they are found in the trie of the
// configured prefixes, which for most RPF addresses says at once that there is none.

namespace mrib {

namespace {

constexpr std::size_t fewChanges = 64;

/// Whether the engine resolves nothing of `from` through `to`, though that covers an RPF address.
bool leadsNowhere(const Lumo::Prefix& from, const Lumo::Prefix& to) {
  return to.length() == 0 || (to.length() <= from.length() && to.contains(from.address()));
}

/// Where a prefix stands in a text about some.
std::pair<bool, U64> placeInText(const Mroutes::Node& node) {
  return {node.staged == 0, node.lines.empty() ? 0 : node.lines[0].origin};
}

}  // namespace

/// Calls `f` with the place of each prefix that a line could resolve through. All that are shorter than one
/// that leads nowhere lead nowhere too.
template <class F>
void Mroutes::forEachMatch(const Lumo::Prefix& from, const Line& line, F f) const {
  const auto address = addressOf(line);
  if (!address) return;
  for (int length = Lumo::Prefix::maxLength; length >= 0; --length) {
    const auto bits = static_cast<U32>(length);
    const U64 key = address->host() & Lumo::Prefix::mask(bits);
    length = trie_.longestMatch({key << 32, 0}, bits);
    if (length < 0) return;
    const Lumo::Prefix to(*address, static_cast<U32>(length));
    if (to == from) continue;
    if (leadsNowhere(from, to)) return;
    f(nodes_.placeOf(*nodes_.find(to)));
  }
}

/// Appends the places of all prefixes that a prefix could resolve through, each once.
void Mroutes::targets(const Node& node, Edges which, std::vector<U32>& into) const {
  const auto first = static_cast<std::ptrdiff_t>(into.size());
  for (const Line& line : node.lines) {
    if (which == Edges::offered && line.held) continue;
    if (which == Edges::byAddress && line.byName) continue;
    forEachMatch(node.prefix, line, [&](U32 place) { into.push_back(place); });
  }
  if (node.lines.size() <= 1) return;
  std::sort(into.begin() + first, into.end());
  into.erase(std::unique(into.begin() + first, into.end()), into.end());
}

/// A depth-first walk without recursion that puts what it meets in order, targets first, and finds the
/// circles (Tarjan, "Depth-First Search and Linear Graph Algorithms", 1972).
class Mroutes::Walk {
 public:
  /// `onlyCounted` leaves out prefixes that are not counted.
  Walk(Mroutes& mroutes, Edges edges, bool onlyCounted = false)
      : m_(mroutes), edges_(edges), onlyCounted_(onlyCounted), begin_(mroutes.beginWalk()) {}
  void reserve(std::size_t count) { order_.reserve(count); }

  void from(U32 start) {
    if (isMet(start)) return;
    open(start);
    while (!steps_.empty()) {
      Step& step = steps_.back();
      if (step.next == targets_.size()) {
        close();
        continue;
      }
      const U32 to = targets_[step.next++];
      if (!isMet(to)) {
        open(to);
      } else if (node(to).open) {
        reaches(step.place, node(to).index);
      }
    }
  }
  const std::vector<U32>& order() const { return order_; }
  std::vector<U32> takeOrder() { return std::move(order_); }
  /// Those of two or more prefixes, each as the set of all that can reach each other.
  const std::vector<std::vector<U32>>& circles() const { return circles_; }

 private:
  struct Step {
    U32 place;
    std::size_t firstTarget;
    std::size_t next;
  };
  Node& node(U32 place) { return m_.nodes_.at(place); }
  bool isMet(U32 place) { return node(place).index > begin_ || (onlyCounted_ && node(place).ways == 0); }
  void reaches(U32 place, U32 index) { node(place).low = std::min(node(place).low, index); }
  void open(U32 place) {
    Node& n = node(place);
    n.index = n.low = ++m_.walked_;
    const std::size_t first = targets_.size();
    m_.targets(n, edges_, targets_);
    n.leaf = first == targets_.size();
    if (n.leaf) {
      order_.push_back(place);
      return;
    }
    n.open = true;
    open_.push_back(place);
    steps_.push_back({place, first, first});
  }
  void close() {
    const Step step = steps_.back();
    steps_.pop_back();
    targets_.resize(step.firstTarget);
    const Node& n = node(step.place);
    if (!steps_.empty()) reaches(steps_.back().place, n.low);
    if (n.low == n.index) closeComponent(step.place);
  }
  void closeComponent(U32 root) {
    const std::size_t first = order_.size();
    do {
      order_.push_back(open_.back());
      node(open_.back()).open = false;
      open_.pop_back();
    } while (order_.back() != root);
    if (order_.size() - first < 2) return;
    circles_.emplace_back(order_.begin() + static_cast<std::ptrdiff_t>(first), order_.end());
  }

  Mroutes& m_;
  Edges edges_;
  bool onlyCounted_;
  U32 begin_;
  std::vector<Step> steps_;
  std::vector<U32> targets_;
  std::vector<U32> open_;
  std::vector<U32> order_;
  std::vector<std::vector<U32>> circles_;
};

/// The number of the last node met. Begins again before it would overflow.
U32 Mroutes::beginWalk() {
  if (walked_ >= ~U32{0} - nodes_.size()) {
    walked_ = 0;
    for (U32 i = 0; i < nodes_.size(); ++i) nodes_.at(i).index = 0;
  }
  return walked_;
}

// ---- Checking what is staged ----

bool Mroutes::isWide() const {
  return !counted_ || staged_.size() + new_.size() > fewChanges;
}

std::vector<Refusal> Mroutes::check() {
  dropUnchanged();
  const bool wide = isWide();
  swapLines();
  for (const Staged& s : staged_) {
    if (!wide) countOut(nodes_.at(s.place));
    indexIs(nodes_.at(s.place), false);
  }
  swapNames();
  swapLines();
  forEachStaged([&](Node& node) { indexIs(node, true); });
  entered_ = true;
  if (staged_.empty() && new_.empty()) return {};

  // A new circle leads through a prefix that changes, and an old one through those that are held back.
  const auto walkAll = [&](Walk& walk) {
    if (wide) walk.reserve(nodes_.size());
    for (U32 i = 0; wide && i < nodes_.size(); ++i) walk.from(i);
    forEachStaged([&](Node& node) { walk.from(nodes_.placeOf(node)); });
    for (auto at = held_.iterator(); at; ++at) walk.from(nodes_.placeOf(*nodes_.find(*at)));
  };
  Walk walk(*this, Edges::all);
  walkAll(walk);
  std::vector<Refusal> refusals = checkCircles(walk.circles());
  if (!refusals.empty()) return refusals;
  if (walk.circles().empty() && held_.size() == 0) return checkWays(walk.takeOrder(), wide);
  holdBack(walk.circles());
  Walk offered(*this, Edges::offered);
  walkAll(offered);
  return checkWays(offered.takeOrder(), wide);
}

std::vector<const Mroutes::Node*> Mroutes::inOrder() {
  if (order_.size() < nodes_.size()) {
    Walk walk(*this, Edges::offered);
    for (U32 i = 0; i < nodes_.size(); ++i) walk.from(i);
    order_ = walk.takeOrder();
  }
  std::vector<const Node*> nodes;
  nodes.reserve(nodes_.size());
  for (const U32 place : order_) nodes.push_back(&nodes_.at(place));
  return nodes;
}

std::vector<Lumo::Prefix> Mroutes::changed() const {
  std::vector<Lumo::Prefix> prefixes;
  for (const U32 place : order_) {
    if (nodes_.at(place).staged != 0) prefixes.push_back(nodes_.at(place).prefix);
  }
  return prefixes;
}

// ---- Circles ----

/// A circle that address RPFs alone close is refused.
std::vector<Refusal> Mroutes::checkCircles(const std::vector<std::vector<U32>>& circles) {
  std::vector<Refusal> refusals;
  U32 number = 0;
  for (const std::vector<U32>& members : circles) {
    ++number;
    for (const U32 place : members) nodes_.at(place).circle = number;
  }
  for (const std::vector<U32>& members : circles) {
    auto refusal = refusals.size() < Transaction::mostTexts ? circleAmong(members) : std::nullopt;
    if (refusal) refusals.push_back(std::move(*refusal));
  }
  if (refusals.empty()) return refusals;
  for (const std::vector<U32>& members : circles) {
    for (const U32 place : members) nodes_.at(place).circle = 0;
  }
  return refusals;
}

/// Some circle of address RPFs among prefixes that can all reach each other: a walk that goes on along the
/// first edge within them that leads to a prefix without a dead end.
std::optional<Refusal> Mroutes::circleAmong(const std::vector<U32>& members) const {
  enum Mark : U8 { unmet, open, done };
  std::map<U32, Mark> marks;
  struct Step {
    U32 place;
    std::vector<U32> targets;
  };
  for (const U32 start : members) {
    std::vector<Step> path;
    const auto enter = [&](U32 place) {
      marks[place] = open;
      path.push_back({place, {}});
      targets(nodes_.at(place), Edges::byAddress, path.back().targets);
    };
    if (marks[start] == unmet) enter(start);
    while (!path.empty()) {
      Step& step = path.back();
      if (step.targets.empty()) {
        marks[step.place] = done;
        path.pop_back();
        continue;
      }
      const U32 to = step.targets.back();
      step.targets.pop_back();
      if (nodes_.at(to).circle != nodes_.at(start).circle || marks[to] == done) continue;
      if (marks[to] == unmet) {
        enter(to);
        continue;
      }
      std::vector<U32> circle;
      circle.reserve(path.size());
      for (const Step& s : path) circle.push_back(s.place);
      circle.erase(circle.begin(), std::find(circle.begin(), circle.end(), to));
      // What changes comes first, in the order of the lines.
      std::rotate(circle.begin(),
                  std::min_element(
                      circle.begin(), circle.end(),
                      [&](U32 a, U32 b) { return placeInText(nodes_.at(a)) < placeInText(nodes_.at(b)); }),
                  circle.end());
      return refusalOf(circle);
    }
  }
  return std::nullopt;
}

/// Spells a circle out, each prefix with the line that leads to the next.
Refusal Mroutes::refusalOf(const std::vector<U32>& path) const {
  Refusal refusal{"these routes could resolve through each other in a circle:", {}};
  for (std::size_t i = 0; i < path.size(); ++i) {
    const Node& node = nodes_.at(path[i]);
    const U32 next = path[(i + 1) % path.size()];
    for (const Line& line : node.lines) {
      bool leadsOn = false;
      if (!line.byName) forEachMatch(node.prefix, line, [&](U32 place) { leadsOn |= place == next; });
      if (!leadsOn) continue;
      const std::string through = "through " + addressOf(line)->stringValue();
      refusal.text += ' ' + node.prefix.stringValue() + " (" +
                      (line.origin != 0 ? nameOf(line.origin, originText_) + ", " : "") + through + ") ->";
      if (line.origin != 0) refusal.origins.push_back(line.origin);
      break;
    }
  }
  refusal.text += ' ' + nodes_.at(path.front()).prefix.stringValue();
  return refusal;
}

bool Mroutes::isOnCircle(const Node& node, const Line& line) const {
  bool on = false;
  if (node.circle != 0) {
    forEachMatch(node.prefix, line, [&](U32 place) { on |= nodes_.at(place).circle == node.circle; });
  }
  return on;
}

/// Breadth first along lines that are held back, since all on a circle are.
std::vector<std::pair<U32, Line>> Mroutes::circleOf(const Node& start, const Line& line) const {
  struct Step {
    U32 place;
    Line line;
    std::size_t from;
  };
  const U32 origin = nodes_.placeOf(start);
  std::vector<Step> steps{{origin, line, 0}};
  std::set<U32> met;
  for (std::size_t i = 0; i < steps.size(); ++i) {
    bool closes = false;
    const Step step = steps[i];
    forEachMatch(nodes_.at(step.place).prefix, step.line, [&](U32 place) {
      closes |= place == origin;
      if (!met.insert(place).second) return;
      for (const Line& next : nodes_.at(place).lines) {
        if (next.held) steps.push_back({place, next, i});
      }
    });
    if (!closes) continue;
    std::vector<std::pair<U32, Line>> circle;
    for (std::size_t at = i; at != 0; at = steps[at].from)
      circle.emplace_back(steps[at].place, steps[at].line);
    circle.emplace_back(origin, line);
    std::reverse(circle.begin(), circle.end());
    return circle;
  }
  return {};
}

/// Holds back the lines that close circles, and no others any more. Prefixes for which that is a change are
/// configured anew.
void Mroutes::holdBack(const std::vector<std::vector<U32>>& circles) {
  holdsChange_ = true;
  std::vector<U32> suspects;
  forEachStaged([&](Node& node) { suspects.push_back(nodes_.placeOf(node)); });
  for (auto at = held_.iterator(); at; ++at) suspects.push_back(nodes_.placeOf(*nodes_.find(*at)));
  for (const std::vector<U32>& members : circles) {
    suspects.insert(suspects.end(), members.begin(), members.end());
  }
  std::vector<U32> turned;  // not staged yet
  for (const U32 place : suspects) {
    const Node& node = nodes_.at(place);
    const bool turns = std::any_of(node.lines.begin(), node.lines.end(),
                                   [&](const Line& l) { return l.held != isOnCircle(node, l); });
    if (turns && node.staged == 0) turned.push_back(place);
    if (turns) touch(node.prefix);
  }
  for (const U32 place : turned) {
    if (counted_) countOut(nodes_.at(place));
  }
  for (const U32 place : suspects) {
    Node& node = nodes_.at(place);
    for (Line& line : node.lines) line.held = isOnCircle(node, line);
  }
  for (const std::vector<U32>& members : circles) {
    for (const U32 place : members) nodes_.at(place).circle = 0;
  }
}

// ---- Ways ----

/// `walked` are all prefixes that change, or simply all, targets first.
std::vector<Refusal> Mroutes::checkWays(std::vector<U32> walked, bool all) {
  order_ = std::move(walked);
  Node* most = nullptr;
  if (all) {
    most = countAll();
    counted_ = true;
  } else {
    // Dependants first, so that a chain of changes is not gone through for each of them.
    for (auto at = order_.rbegin(); at != order_.rend(); ++at) {
      if (nodes_.at(*at).staged != 0) countIn(nodes_.at(*at), most);
    }
  }
  if (!most || most->ways <= mostWays) return {};
  const Node& node = *most;
  Refusal refusal{"more than " + std::to_string(mostWays) + " ways lead to " + node.prefix.stringValue() +
                      " from routes that could resolve through it, one through the other",
                  {}};
  for (const Line& line : node.lines) {
    if (line.origin != 0) refusal.origins.push_back(line.origin);
  }
  nameOrigin(refusal, originText_);
  return {std::move(refusal)};
}

/// Counts anew, in the order of all. The prefix to which most ways lead.
Mroutes::Node* Mroutes::countAll() {
  for (Node& node : nodes_.values()) node.ways = node.lines.empty() ? 0 : 1;
  Node* most = nullptr;
  std::vector<U32> to;
  for (auto at = order_.rbegin(); at != order_.rend(); ++at) {
    Node& node = nodes_.at(*at);
    if (!most || node.ways > most->ways) most = &node;
    if (node.leaf) continue;
    to.clear();
    targets(node, Edges::offered, to);
    for (const U32 place : to) addWays(nodes_.at(place), node.ways);
  }
  return most;
}

/// Counts no further than needed: what has more is not kept.
void Mroutes::addWays(Node& node, U64 ways) {
  node.ways = static_cast<U32>(std::min<U64>(mostWays + 1, node.ways + ways));
}

/// Takes a prefix into the count. `most` becomes the prefix to which most ways lead, of it and those that
/// have more now.
void Mroutes::countIn(Node& node, Node*& most) {
  if (node.lines.empty()) return;
  addWays(node, waysFromDependants(node));
  if (!most || node.ways > most->ways) most = &node;
  passOn(node, [&](Node& target, U64 ways) {
    addWays(target, ways);
    if (target.ways > most->ways) most = &target;
  });
}

/// Calls `f(target, number)` with the ways to a prefix that lead on to each that it could resolve through.
template <class F>
void Mroutes::passOn(const Node& node, F f) {
  Walk walk(*this, Edges::offered, true);
  walk.from(nodes_.placeOf(node));
  const std::vector<U32>& order = walk.order();
  if (order.size() == 1) return;
  std::vector<U64> amounts(order.size(), 0);
  for (U32 i = 0; i < order.size(); ++i) nodes_.at(order[i]).low = i;
  amounts.back() = node.ways;
  std::vector<U32> to;
  for (std::size_t i = order.size(); i-- > 0;) {
    to.clear();
    targets(nodes_.at(order[i]), Edges::offered, to);
    for (const U32 place : to) {
      Node& target = nodes_.at(place);
      if (target.ways == 0) continue;
      amounts[target.low] += amounts[i];
      f(target, amounts[i]);
    }
  }
}

/// Takes a prefix out of the count, with what leads on from it.
void Mroutes::countOut(Node& node) {
  if (node.ways == 0) return;
  passOn(node, [](Node& target, U64 ways) { target.ways -= static_cast<U32>(ways); });
  node.ways = 0;
}

/// Its own, and those of all that could resolve through it and are counted.
U64 Mroutes::waysFromDependants(const Node& node) const {
  std::vector<U32> dependants;
  if (node.prefix.length() > 0) {
    forEachUser(node.prefix, [&](U32 address, const Lumo::Prefix& prefix) {
      dependants.push_back(nodes_.placeOf(*nodes_.find(prefix)));
      return U64{address};
    });
  }
  std::sort(dependants.begin(), dependants.end());
  dependants.erase(std::unique(dependants.begin(), dependants.end()), dependants.end());
  U64 ways = 1;
  for (const U32 place : dependants) {
    const Node& dependant = nodes_.at(place);
    if (dependant.prefix == node.prefix || leadsNowhere(dependant.prefix, node.prefix)) continue;
    const bool offered = std::any_of(dependant.lines.begin(), dependant.lines.end(), [&](const Line& line) {
      const auto address = addressOf(line);
      return !line.held && address && node.prefix.contains(*address);
    });
    if (offered) ways += dependant.ways;
  }
  return ways;
}

}  // namespace mrib
