#pragma once

#include <array>
#include <span>
#include <vector>

#include "inside/LargeMemory.h"
#include "mrib/Agent.h"

namespace mrib {

/// The routes that are published, by prefix. They lie in an open table with linear probing, so that a search
/// reads nothing but the line of memory that has the route; three in four places are used at most. Places and
/// pointers hold until the next insertion or removal.
class RouteTable {
 public:
  U32 size() const { return static_cast<U32>(order_.size()); }
  Routes all() const { return {slots_.data(), order_}; }

  const Route* find(const Lumo::Prefix& prefix) const {
    if (slots_.empty()) return nullptr;
    for (U32 i = home(prefix);; i = next(i)) {
      if (isFree(slots_[i])) return nullptr;
      if (slots_[i].prefix == prefix) return &slots_[i];
    }
  }
  Route* find(const Lumo::Prefix& prefix) { return const_cast<Route*>(std::as_const(*this).find(prefix)); }
  /// A prefix will be looked up soon.
  [[gnu::always_inline]] void prefetch(const Lumo::Prefix& prefix) const {
    if (!slots_.empty()) __builtin_prefetch(&slots_[home(prefix)]);
  }
  /// So will the longest match of an address, which has most probably the length that most routes have. While
  /// the trie finds the match, its line comes from memory.
  [[gnu::always_inline]] void prefetchMatch(Lumo::IpAddr address) const {
    prefetch({address, commonLength_});
  }
  /// The length of the longest match of an address, or -1. Slower than a trie that knows it.
  int matchLength(Lumo::IpAddr address) const {
    int length = Lumo::Prefix::maxLength;
    while (length >= 0 && !find({address, static_cast<U32>(length)})) --length;
    return length;
  }
  /// Adds a route under a prefix that is not there. It gets a type, which is not `unknown`, before anything
  /// else is done here.
  Route& insert(const Lumo::Prefix& prefix) {
    if (room() == size()) grow(size() + 1 + size() / 2);
    order_.push_back(0);
    ++lengths_[prefix.length()];
    if (lengths_[prefix.length()] > lengths_[commonLength_]) commonLength_ = prefix.length();
    Route& slot = slots_[take(prefix, size() - 1)];
    slot.prefix = prefix;
    return slot;
  }
  void erase(const Route& route);
  void reserve(std::size_t count) {
    order_.reserve(count);
    if (room() < count) grow(count);
  }

 private:
  static bool isFree(const Route& slot) { return slot.type == RouteType::unknown; }
  std::size_t room() const { return slots_.size() / 4 * 3; }
  /// The first of the two places on some line.
  U32 home(const Lumo::Prefix& prefix) const {
    return static_cast<U32>((prefix.hash() >> 32) * (slots_.size() / 2) >> 32) * 2;
  }
  U32 next(U32 i) const { return i + 1 == slots_.size() ? 0 : i + 1; }
  U32 distance(U32 from, U32 to) const {
    return to >= from ? to - from : to + static_cast<U32>(slots_.size()) - from;
  }
  U32 take(const Lumo::Prefix& prefix, U32 place) {
    U32 i = home(prefix);
    while (!isFree(slots_[i])) i = next(i);
    places_[i] = place;
    order_[place] = i;
    return i;
  }
  void grow(std::size_t count);

  // A slot without type is free.
  LargeVector<Route> slots_;
  LargeVector<U32> places_;  // of each slot in the order
  std::vector<U32> order_;   // the slots that are used
  std::array<U32, Lumo::Prefix::maxLength + 1> lengths_{};
  U8 commonLength_ = 0;
};

inline void RouteTable::grow(std::size_t count) {
  const std::size_t slots = (count / 3 + 2) * 4;
  LargeVector<Route> old(slots);
  places_.assign(slots, 0);  // before anything else has changed: there may be no memory
  old.swap(slots_);
  for (U32 place = 0; place < size(); ++place) {
    Route& route = old[order_[place]];
    slots_[take(route.prefix, place)] = std::move(route);
  }
}

/// Moves back what a search would not find behind the gap.
inline void RouteTable::erase(const Route& route) {
  --lengths_[route.prefix.length()];
  auto gap = static_cast<U32>(&route - slots_.data());
  const U32 place = places_[gap];
  order_[place] = order_.back();
  places_[order_[place]] = place;
  order_.pop_back();
  for (U32 i = next(gap); !isFree(slots_[i]); i = next(i)) {
    if (distance(home(slots_[i].prefix), i) < distance(gap, i)) continue;
    slots_[gap] = std::move(slots_[i]);
    places_[gap] = places_[i];
    order_[places_[gap]] = gap;
    gap = i;
  }
  slots_[gap] = Route{};
}

}  // namespace mrib
