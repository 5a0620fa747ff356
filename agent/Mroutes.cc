#include "inside/Mroutes.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace mrib {

namespace {

Routing::TrieKey keyOf(const Lumo::Prefix& prefix) {
  return {U64{prefix.address().host()} << 32, 0};
}

constexpr std::size_t manyOps = 256;

/// Of lines that are the same otherwise.
bool haveSameOrigins(const Few<Line>& a, const Few<Line>& b) {
  return std::equal(a.begin(), a.end(), b.begin(),
                    [](const Line& x, const Line& y) { return x.origin == y.origin; });
}

/// The places of the operations, by RPF; those with the same one as they come. A radix sort.
std::vector<U32> orderByRpf(std::span<const Transaction::MrouteOp> ops) {
  struct Entry {
    U32 rpf;
    U32 place;
  };
  constexpr U32 digitBits = 11;
  constexpr U32 digits = 1u << digitBits;
  std::vector<Entry> entries(ops.size());
  std::vector<Entry> next(ops.size());
  for (U32 i = 0; i < ops.size(); ++i) entries[i] = {ops[i].rpf, i};
  for (U32 shift = 0; shift < 32; shift += digitBits) {
    std::array<U32, digits + 1> first{};
    for (const Entry& e : entries) ++first[(e.rpf >> shift) % digits + 1];
    if (first[(entries[0].rpf >> shift) % digits + 1] == entries.size()) continue;  // all are alike there
    std::partial_sum(first.begin(), first.end(), first.begin());
    for (const Entry& e : entries) next[first[(e.rpf >> shift) % digits]++] = e;
    entries.swap(next);
  }
  std::vector<U32> order(ops.size());
  std::transform(entries.begin(), entries.end(), order.begin(), [](const Entry& e) { return e.place; });
  return order;
}

}  // namespace

// ---- Names of interfaces ----

U32 Mroutes::nameIs(const std::string& text, const Interfaces& interfaces) {
  const auto [at, isFirst] = nameIds_.try_emplace(text, static_cast<U32>(names_.size()));
  if (isFirst) {
    const Intf* intf = interfaces.find(text);
    names_.push_back(intf ? Name{text, intf->link.index, intf->rpfAddress()} : Name{text});
  }
  return at->second;
}

// ---- Staging ----

Mroutes::Node& Mroutes::touch(const Lumo::Prefix& prefix) {
  const auto [node, isFirst] = nodes_.findOrInsert(prefix);
  if (isFirst) {
    node->prefix = prefix;
    node->staged = isNew;
    new_.push_back(nodes_.placeOf(*node));
  }
  if (node->staged == 0) {
    staged_.push_back({nodes_.placeOf(*node), node->lines});
    node->staged = static_cast<U32>(staged_.size());
  }
  return *node;
}

void Mroutes::stage(const Transaction& t, const Interfaces& interfaces) {
  std::vector<U32> names;
  for (const std::string& text : t.names()) names.push_back(nameIs(text, interfaces));
  if (t.mrouteOps().size() > nodes_.size()) {
    nodes_.reserve(nodes_.size() + t.mrouteOps().size());
    new_.reserve(t.mrouteOps().size());
  }
  const std::vector<Transaction::MrouteOp>& ops = t.mrouteOps();
  if (ops.size() < manyOps) {
    for (const Transaction::MrouteOp& op : ops) stageOp(op, names);
    return;
  }
  // Many are taken by their RPF, so that all that is kept in that order, here and in the engine, grows at its
  // end. What is said of one line stays in order.
  const bool clears = ops.front().kind == Transaction::MrouteOp::delAll;
  if (clears) stageOp(ops.front(), names);
  const std::vector<U32> order = orderByRpf(std::span(ops).subspan(clears));
  constexpr std::size_t lead = 8;
  for (std::size_t i = 0; i < order.size(); ++i) {
    if (i + lead < order.size()) nodes_.prefetch(ops[order[i + lead] + clears].prefix);
    stageOp(ops[order[i] + clears], names);
  }
}

void Mroutes::stageOp(const Transaction::MrouteOp& op, const std::vector<U32>& names) {
  if (op.kind == Transaction::MrouteOp::delAll) {
    for (const Node& node : nodes_.values()) touch(node.prefix).lines.clear();
    return;
  }
  const Line line{op.byName ? names[op.rpf] : op.rpf, op.preference, op.byName, false, op.origin};
  if (op.kind == Transaction::MrouteOp::del && !nodes_.find(op.prefix)) return;
  Few<Line>& lines = touch(op.prefix).lines;
  const auto at = std::lower_bound(lines.begin(), lines.end(), line);
  const bool present = at != lines.end() && *at == line;
  if (op.kind == Transaction::MrouteOp::del) {
    if (present) lines.erase(at);
  } else if (present) {
    at->origin = line.origin;
  } else {
    lines.insert(at, line);
  }
}

void Mroutes::stageAnew(const Lumo::Prefix& prefix) {
  if (!nodes_.find(prefix)) return;
  const U32 staged = touch(prefix).staged;
  if (staged != isNew) staged_[staged - 1].anew = true;
}

void Mroutes::stageName(const std::string& text, U32 link, std::optional<Lumo::IpAddr> address) {
  const auto found = nameIds_.find(text);
  if (found == nameIds_.end()) return;
  const U32 id = found->second;
  if (names_[id].link == link && names_[id].address == address) return;
  stagedNames_.push_back({id, {text, link, address}});
  for (auto at = nameUsers_.iterator({id, {}}); at && at->name == id; ++at) stageAnew(at->prefix);
}

/// Forgets the staged prefixes that stay as they are; they may have lines with another origin, which is
/// theirs again if all is rolled back.
void Mroutes::dropUnchanged() {
  for (const Staged& s : staged_) {
    const Few<Line>& lines = nodes_.at(s.place).lines;
    if (!s.anew && lines == s.other && !haveSameOrigins(lines, s.other)) reworded_.push_back(s);
  }
  const auto isUnchanged = [&](const Staged& s) {
    Node& node = nodes_.at(s.place);
    if (!(node.lines == s.other)) return false;
    for (U32 i = 0; i < s.other.size(); ++i) node.lines.begin()[i].held = s.other[i].held;
    if (!s.anew) node.staged = 0;
    return !s.anew;
  };
  std::erase_if(staged_, isUnchanged);
  for (U32 i = 0; i < staged_.size(); ++i) nodes_.at(staged_[i].place).staged = i + 1;
}

/// Puts the lines before in place of those to be, or the other way. New prefixes keep theirs: nothing finds
/// them before they are indexed.
void Mroutes::swapLines() {
  for (Staged& s : staged_) std::swap(nodes_.at(s.place).lines, s.other);
  swapped_ = !swapped_;
}

void Mroutes::swapNames() {
  for (auto& [id, name] : stagedNames_) std::swap(names_[id], name);
}

/// Finds the prefix by its lines, or no more.
void Mroutes::indexIs(const Node& node, bool present) {
  if (node.lines.empty()) return;
  for (const Line& line : node.lines) {
    if (line.byName) {
      present ? nameUsers_.insert({line.rpf, node.prefix}) : nameUsers_.erase({line.rpf, node.prefix});
    }
    const auto address = addressOf(line);
    if (!address) continue;
    const User user{address->host(), node.prefix};
    present ? byAddress_.insert(user) : byAddress_.erase(user);
  }
  const Lumo::Prefix& p = node.prefix;
  present ? trie_.insert(keyOf(p), p.length()) : trie_.remove(keyOf(p), p.length());
}

void Mroutes::noteHeld(const Node& node) {
  const bool any = std::any_of(node.lines.begin(), node.lines.end(), [](const Line& l) { return l.held; });
  any ? held_.insert(node.prefix) : held_.erase(node.prefix);
}

void Mroutes::keep() {
  std::vector<Lumo::Prefix> gone;
  forEachStaged([&](const Node& node) {
    if (holdsChange_) noteHeld(node);
    if (node.lines.empty()) gone.push_back(node.prefix);
  });
  forEachStaged([](Node& node) { node.staged = 0; });  // from here on it needs no memory
  for (const Lumo::Prefix& prefix : gone) nodes_.erase(*nodes_.find(prefix));
  staged_.clear();
  reworded_.clear();
  new_.clear();
  stagedNames_.clear();
  order_.clear();
  swapped_ = false;
  entered_ = false;
  holdsChange_ = false;
}

void Mroutes::rollBack() {
  if (entered_) {
    forEachStaged([&](Node& node) { indexIs(node, false); });
    swapNames();
    counted_ = false;
  }
  swapLines();
  for (const Staged& s : staged_) {
    if (entered_) indexIs(nodes_.at(s.place), true);
  }
  for (const U32 place : new_) nodes_.at(place).lines.clear();
  for (const Staged& s : reworded_) {
    for (U32 i = 0; i < s.other.size(); ++i) nodes_.at(s.place).lines.begin()[i].origin = s.other[i].origin;
  }
  keep();
}

void Mroutes::tellBefore(Transaction& into) const {
  for (const Node& node : nodes_.values()) {
    if (node.staged == isNew) continue;
    const bool isAfter = node.staged != 0 && !swapped_;
    for (const Line& line : isAfter ? staged_[node.staged - 1].other : node.lines)
      into.mroute(mrouteOf(node.prefix, line));
  }
  for (const Staged& s : reworded_) {  // said once more, with the origins before
    for (const Line& line : s.other) into.mroute(mrouteOf(nodes_.at(s.place).prefix, line));
  }
}

Mroute Mroutes::mrouteOf(const Lumo::Prefix& prefix, const Line& line) const {
  Mroute m{prefix, Lumo::IpGenAddr(Lumo::IpAddr::fromHost(line.rpf)), line.preference, line.origin};
  if (line.byName) m.rpf = name(line.rpf).text;
  return m;
}

}  // namespace mrib
