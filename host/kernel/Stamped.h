#pragma once

#include <map>
#include <set>

#include "Zan/Types.h"

namespace host::kernel {

/// Counts the moments after which what was known before is worth less: the start of a dump, a link that goes
/// down. Every record carries the one at which it was last confirmed.
using Epoch = U32;

/// Records with unique keys, kept by events and by dumps. A dump is not one moment: what an event says while
/// it runs is newer than its answer, or will be followed by another event. So events win.
template <class Key, class T>
class Stamped {
 public:
  struct Entry {
    T value;
    Epoch epoch = 0;  ///< last confirmed
    Epoch born = 0;   ///< known since
  };

  const std::map<Key, Entry>& all() const { return entries_; }
  const Entry* find(const Key& key) const {
    const auto it = entries_.find(key);
    return it == entries_.end() ? nullptr : &it->second;
  }

  /// What an event says. True when that is new.
  bool put(const Key& key, T value, Epoch now) {
    if (dumping_) touched_.insert(key);
    return store(key, std::move(value), now);
  }
  bool erase(const Key& key) {
    if (dumping_) touched_.insert(key);
    return entries_.erase(key) > 0;
  }

  /// Those for which `stands(entry)` is as well known as what an event says now.
  template <class F>
  void confirm(F stands, Epoch now) {
    for (auto& [key, entry] : entries_) {
      if (stands(entry)) entry.epoch = std::max(entry.epoch, now);
    }
  }

  /// Whether an event has told of it since the dump that runs began.
  bool isTouched(const Key& key) const { return dumping_ && touched_.contains(key); }

  void startDump(Epoch now) {
    dumping_ = true;
    dumpEpoch_ = now;
    touched_.clear();
  }
  /// What the dump says. True when that is new.
  bool putDumped(const Key& key, T value) {
    return !touched_.contains(key) && store(key, std::move(value), dumpEpoch_);
  }
  /// Ends a dump that came through: what it did not confirm is removed and handed to `gone`. Returns how
  /// many.
  template <class F>
  std::size_t sweep(F gone) {
    dumping_ = false;
    return std::erase_if(entries_, [&](const auto& item) {
      if (item.second.epoch >= dumpEpoch_) return false;
      gone(item.second.value);
      return true;
    });
  }

 private:
  bool store(const Key& key, T value, Epoch epoch) {
    const auto [it, isNew] = entries_.try_emplace(key);
    Entry& entry = it->second;
    if (isNew) entry.born = epoch;
    entry.epoch = std::max(entry.epoch, epoch);
    if (!isNew && entry.value == value) return false;
    entry.value = std::move(value);
    return true;
  }

  std::map<Key, Entry> entries_;
  std::set<Key> touched_;
  Epoch dumpEpoch_ = 0;
  bool dumping_ = false;
};

}  // namespace host::kernel
