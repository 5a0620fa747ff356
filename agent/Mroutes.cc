#include "inside/Mroutes.h"

#include <algorithm>

namespace mrib {

namespace {

Routing::TrieKey keyOf(const Lumo::Prefix& prefix) {
  return {U64{prefix.address().host()} << 32, 0};
}

}  // namespace

// ---- Names of interfaces ----

U32 Mroutes::nameIs(const std::string& text, const Interfaces& interfaces) {
  const auto [at, isNew] = nameIds_.try_emplace(text, static_cast<U32>(names_.size()));
  if (isNew) {
    const Intf* intf = interfaces.find(text);
    names_.push_back(intf ? Name{text, intf->link.index, intf->rpfAddress()} : Name{text});
  }
  return at->second;
}

// ---- Staging ----

Mroutes::Node& Mroutes::touch(const Lumo::Prefix& prefix) {
  Node* node = nodes_.find(prefix);
  if (!node) node = &nodes_.insert({prefix});
  if (node->staged == 0) {
    staged_.push_back({nodes_.placeOf(*node), node->lines});
    node->staged = static_cast<U32>(staged_.size());
  }
  return *node;
}

void Mroutes::stage(const Transaction& t, const Interfaces& interfaces) {
  std::vector<U32> names;
  for (const std::string& text : t.names()) names.push_back(nameIs(text, interfaces));
  nodes_.reserve(nodes_.size() + t.mrouteOps().size());
  staged_.reserve(t.mrouteOps().size());
  for (const Transaction::MrouteOp& op : t.mrouteOps()) stageOp(op, names);
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
  staged_[touch(prefix).staged - 1].anew = true;
}

void Mroutes::stageName(const std::string& text, U32 link, std::optional<Lumo::IpAddr> address) {
  const auto found = nameIds_.find(text);
  if (found == nameIds_.end()) return;
  const U32 id = found->second;
  if (names_[id].link == link && names_[id].address == address) return;
  stagedNames_.push_back({id, {text, link, address}});
  for (auto at = nameUsers_.iterator({id, {}}); at && at->name == id; ++at) stageAnew(at->prefix);
}

/// Forgets the staged prefixes that stay as they are; they may have lines with another origin.
void Mroutes::dropUnchanged() {
  std::vector<Staged> changes;
  changes.reserve(staged_.size());
  for (Staged& s : staged_) {
    Node& node = nodeOf(s);
    const bool same = node.lines == s.other;
    for (U32 i = 0; same && i < s.other.size(); ++i) node.lines.begin()[i].held = s.other[i].held;
    if (same && !s.anew && !s.other.empty()) {
      node.staged = 0;
    } else {
      changes.push_back(std::move(s));
      node.staged = static_cast<U32>(changes.size());
    }
  }
  staged_ = std::move(changes);
}

/// Puts the lines before in place of those behind, or the other way.
void Mroutes::swapLines() {
  for (Staged& s : staged_) std::swap(nodeOf(s).lines, s.other);
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
  for (const Staged& s : staged_) {
    Node& node = nodeOf(s);
    node.staged = 0;
    noteHeld(node);
    if (node.lines.empty()) gone.push_back(node.prefix);
  }
  for (const Lumo::Prefix& prefix : gone) nodes_.erase(*nodes_.find(prefix));
  staged_.clear();
  stagedNames_.clear();
  changed_.clear();
  entered_ = false;
}

void Mroutes::rollBack() {
  if (entered_) {
    for (const Staged& s : staged_) indexIs(nodeOf(s), false);
    swapNames();
    counted_ = false;
  }
  swapLines();
  for (const Staged& s : staged_) {
    if (entered_) indexIs(nodeOf(s), true);
  }
  keep();
}

}  // namespace mrib
