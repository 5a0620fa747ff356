#include "inside/Unicast.h"

#include <algorithm>

namespace mrib {

namespace {

U64 hashOf(std::span<const NextHop> hops) {
  U64 h = hops.size();
  for (const NextHop& hop : hops) h = Zan::mix(h ^ hop.address.network(), hop.link);
  return h;
}

}  // namespace

Unicast::Unicast()
    : trie_(Zan::create<Routing::TrieGen>("unicast", Lumo::ipv4())),
      shadow_(Zan::create<Routing::Shadow::Status>("uribShadowStatus")) {
  shadow_->routeStatusIs(Zan::create<Quarn::Fib::RouteStatus>(routeTable_.fd()));
  shadow_->forwardingStatusIs(Zan::create<Quarn::Fib::ForwardingStatus>(fecTable_.fd()));
  shadow_->trieIs(trie_);
}

std::optional<Unicast::Copy> Unicast::copied(const Lumo::Prefix& prefix) const {
  const Entry* entry = routes_.find(prefix);
  if (!entry || !isCopied(*entry)) return std::nullopt;
  return Copy{entry->preference, hopsOf(*entry)};
}

void Unicast::tell(const Lumo::Prefix& prefix, Transaction& into) const {
  const Entry* entry = routes_.find(prefix);
  if (entry) into.routeAgain(prefix, entry->type, entry->preference, hopsOf(*entry));
}

// ---- What a transaction changes ----

std::vector<Unicast::Move> Unicast::plan(const Transaction& t, const std::set<U32>& replacedLinks) const {
  struct Last {
    Lumo::Prefix prefix;
    const RouteOp* op;
    const Lumo::Prefix& key() const { return prefix; }
  };
  PrefixTable<Last> last;
  for (const RouteOp& op : t.routeOps()) {
    if (Last* before = last.find(op.prefix)) {
      before->op = &op;
    } else {
      last.insert({op.prefix, &op});
    }
  }
  std::vector<Move> moves;
  for (const Last& l : last.values()) {
    if (changes(t, *l.op)) moves.push_back({l.prefix, l.op});
  }
  const std::size_t changed = moves.size();
  for (const U32 link : replacedLinks) {
    for (auto at = copiedOn_.iterator({link, {}}); at && at->link == link; ++at) {
      const Last* own = last.find(at->prefix);
      if (!own || !changes(t, *own->op)) moves.push_back({at->prefix, nullptr});
    }
  }
  // A route may be on several of the interfaces.
  const auto byPrefix = [](const Move& a, const Move& b) { return a.prefix < b.prefix; };
  const auto same = [](const Move& a, const Move& b) { return a.prefix == b.prefix; };
  const auto further = moves.begin() + static_cast<std::ptrdiff_t>(changed);
  std::sort(further, moves.end(), byPrefix);
  moves.erase(std::unique(further, moves.end(), same), moves.end());
  return moves;
}

bool Unicast::changes(const Transaction& t, const RouteOp& op) const {
  const Entry* entry = routes_.find(op.prefix);
  if (!entry || !op.present) return entry || op.present;
  const auto hops = t.hopsOf(op);
  return entry->type != op.type || entry->preference != op.preference ||
         !std::equal(hops.begin(), hops.end(), hopsOf(*entry).begin(), hopsOf(*entry).end());
}

// ---- The tables and the trie ----

void Unicast::withdraw(const Move& move) {
  const Entry* entry = routes_.find(move.prefix);
  if (!entry) return;
  const bool isDeleted = move.op && !move.op->present;
  if (!isCopied(*entry) && !isDeleted) return;
  routeTable_.routeDel(move.prefix);
  tell(move.prefix, false);
  if (!move.op) return;  // it comes back as it is
  indexLinks(*entry, false);
  dropFec(entry->fec);
  routes_.erase(*entry);
}

void Unicast::announce(const Move& move, const Transaction& t) {
  Entry* entry = routes_.find(move.prefix);
  if (move.op && !move.op->present) return;
  if (move.op) {
    const U32 fec = useFec(t.hopsOf(*move.op));
    if (entry) dropFec(entry->fec);
    if (!entry) entry = &routes_.insert({move.prefix, RouteType::unknown, 0, fec});
    *entry = {move.prefix, move.op->type, move.op->preference, fec};
    indexLinks(*entry, true);
  }
  routeTable_.routeIs({entry->prefix, entry->type, entry->preference, entry->fec});
  tell(move.prefix, true);
}

void Unicast::tell(const Lumo::Prefix& prefix, bool present) {
  if (shadow_->routeStatus()->instance() != routeTable_.instance()) {
    shadow_->routeStatus()->attach(routeTable_.fd());
  }
  if (shadow_->forwardingStatus()->instance() != fecTable_.instance()) {
    shadow_->forwardingStatus()->attach(fecTable_.fd());
  }
  if (trie_->route(prefix) == present) {
    trie_->changedRouteIs(prefix);
  } else {
    trie_->routeIs(prefix, present);
  }
}

void Unicast::indexLinks(const Entry& entry, bool present) {
  if (!isCopied(entry)) return;
  for (const NextHop& hop : hopsOf(entry)) {
    if (present) {
      copiedOn_.insert({hop.link, entry.prefix});
    } else {
      copiedOn_.erase({hop.link, entry.prefix});
    }
  }
}

// ---- FECs ----

U32 Unicast::useFec(std::span<const NextHop> hops) {
  const U64 h = hashOf(hops);
  const auto [first, last] = fecsByHash_.equal_range(h);
  for (auto at = first; at != last; ++at) {
    Fec& fec = fecs_[at->second - 1];
    if (!std::equal(hops.begin(), hops.end(), fec.hops.begin(), fec.hops.end())) continue;
    ++fec.users;
    return at->second;
  }
  if (freeFecs_.empty()) {
    fecs_.emplace_back();
    freeFecs_.push_back(static_cast<U32>(fecs_.size()));
  }
  const U32 id = freeFecs_.back();
  freeFecs_.pop_back();
  fecs_[id - 1] = {{hops.begin(), hops.end()}, 1};
  fecsByHash_.emplace(h, id);
  Quarn::Fib::Fec record{};
  record.fecId = id;
  record.viaCount = static_cast<U32>(hops.size());
  for (U32 i = 0; i < record.viaCount; ++i) record.via[i] = {hops[i].address, Lumo::IntfId(hops[i].link)};
  fecTable_.fecIs(record);
  return id;
}

void Unicast::dropFec(U32 fec) {
  if (--fecs_[fec - 1].users > 0) return;
  const auto [first, last] = fecsByHash_.equal_range(hashOf(fecs_[fec - 1].hops));
  fecsByHash_.erase(std::find_if(first, last, [&](const auto& e) { return e.second == fec; }));
  fecs_[fec - 1].hops.clear();
  fecTable_.fecDel(fec);
  freeFecs_.push_back(fec);
}

}  // namespace mrib
