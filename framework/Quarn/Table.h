#pragma once

#include <functional>
#include <optional>

#include "Quarn/Segment.h"

namespace Quarn {

/// Shared-memory hash tables, one writer and any number of readers in other processes. The slot array is the
/// hash index (open addressing, linear probing, at most half full), so that the memory holds no pointer and
/// no offset that corruption could lead astray. `Traits` says what a record is:
///   Record, Key; layout; keyOf(record), hash(key); encode(record, words), decode(words, reason) -> optional.
/// The first payload word is the slot's state; the record has the others.
enum class SlotState : U64 { empty = 0, used = 1, deleted = 2 };

/// The reading side. Takes no lock and allocates nothing; every shared word is copied once and then checked.
template <class Traits>
class TableReader {
 public:
  using Record = typename Traits::Record;
  using Key = typename Traits::Key;
  using CorruptionHandler = std::function<std::optional<Record>(const std::string& message)>;

  explicit TableReader(int fd) : segment_(Segment::attach(Traits::layout, fd)) {}
  /// Moves to another segment, after the writer has grown its table. What is refused leaves the old one.
  void attach(int fd) { segment_ = Segment::attach(Traits::layout, fd); }
  U64 instance() const { return segment_.instance(); }
  U64 slotCount() const { return segment_.slotCount(); }

  /// The record under a key. Throws a CorruptionException when a slot on the way to it is bad.
  std::optional<Record> lookup(const Key& key) const;
  /// As `lookup`, but a bad slot goes to the corruption handler, and what that returns is the answer.
  std::optional<Record> lookupOrHandled(const Key& key) const {
    try {
      return lookup(key);
    } catch (const CorruptionException& e) {
      return corrupted(e.what());
    }
  }

  /// Walks the slots by number, so that it ends whatever the memory holds. Stands on used slots and, once
  /// each, on bad ones, where `get` throws.
  class Iterator;
  Iterator iterator() const { return Iterator(*this); }
  /// Calls `f` with every record. A bad slot goes to the corruption handler and the walk goes on with the
  /// record that it returns, or without.
  template <class F>
  void forEach(F f) const {
    for (Iterator i = iterator(); i; ++i) {
      const std::optional<Record> record = i.getOrHandled();
      if (record) f(*record);
    }
  }

  /// Called with the message of a corruption; returns the record to go on with, or nothing (the default).
  void corruptionHandlerIs(CorruptionHandler handler) { handler_ = std::move(handler); }
  std::optional<Record> corrupted(const std::string& message) const {
    return handler_ ? handler_(message) : std::nullopt;
  }

 private:
  using Payload = U64[Traits::layout.payloadWords];

  SlotState read(U64 slot, U64* payload) const {
    if (!segment_.read(slot, payload)) return SlotState::empty;
    if (payload[0] > static_cast<U64>(SlotState::deleted)) segment_.corrupt(slot, "unknown state");
    return static_cast<SlotState>(payload[0]);
  }
  Record decode(U64 slot, const U64* payload) const {
    std::string reason;
    std::optional<Record> record = Traits::decode(payload + 1, reason);
    if (!record) segment_.corrupt(slot, reason);
    return *record;
  }

  Segment segment_;
  CorruptionHandler handler_;
};

template <class Traits>
class TableReader<Traits>::Iterator {
 public:
  explicit Iterator(const TableReader& table) : table_(&table) { settle(); }

  explicit operator bool() const { return slot_ < table_->slotCount(); }
  Iterator& operator++() {
    ++slot_;
    settle();
    return *this;
  }
  U64 slot() const { return slot_; }
  Record get() const {
    if (!error_.empty()) throw CorruptionException(error_);
    return table_->decode(slot_, payload_);
  }
  std::optional<Record> getOrHandled() const {
    try {
      return get();
    } catch (const CorruptionException& e) {
      return table_->corrupted(e.what());
    }
  }

 private:
  /// Goes to the next slot worth standing on, from this one.
  void settle() {
    error_.clear();
    for (; slot_ < table_->slotCount(); ++slot_) {
      try {
        if (table_->read(slot_, payload_) == SlotState::used) return;
      } catch (const CorruptionException& e) {
        error_ = e.what();
        return;
      }
    }
  }

  const TableReader* table_;
  U64 slot_ = 0;
  std::string error_;
  Payload payload_;
};

template <class Traits>
std::optional<typename Traits::Record> TableReader<Traits>::lookup(const Key& key) const {
  Payload payload;
  const U64 mask = slotCount() - 1;
  for (U64 i = 0; i <= mask; ++i) {
    const U64 slot = (Traits::hash(key) + i) & mask;
    const SlotState state = read(slot, payload);
    if (state == SlotState::empty) return std::nullopt;
    if (state == SlotState::deleted) continue;
    const Record record = decode(slot, payload);
    if (Traits::keyOf(record) == key) return record;
  }
  return std::nullopt;
}

/// The writing side. Owns the current segment; growing moves all records into a new one, and readers follow
/// when they see that `instance()` is another.
template <class Traits>
class TableWriter {
 public:
  using Record = typename Traits::Record;
  using Key = typename Traits::Key;

  explicit TableWriter(U64 slotCount = 64) : segment_(Segment::create(Traits::layout, slotCount)) {}

  /// The current segment's descriptor, owned by the writer: hand it to readers.
  int fd() const { return segment_.fd(); }
  U64 instance() const { return segment_.instance(); }
  U64 count() const { return count_; }

  /// Adds the record or replaces the one under its key.
  void set(const Record& record) {
    const Place place = find(Traits::keyOf(record));
    if (place.used) {
      put(place.slot, record);
      return;
    }
    if ((taken_ + 1) * 2 > segment_.slotCount()) {
      move();
      return set(record);
    }
    taken_ += place.fresh;
    ++count_;
    put(place.slot, record);
  }
  /// Removes the record under a key, if there is one.
  void erase(const Key& key) {
    const Place place = find(key);
    if (!place.used) return;
    Payload payload{};
    payload[0] = static_cast<U64>(SlotState::deleted);
    segment_.write(place.slot, payload);
    --count_;
  }

 private:
  using Payload = U64[Traits::layout.payloadWords];
  struct Place {
    U64 slot;
    bool used;   // holds the key
    bool fresh;  // was never written
  };

  /// The slot of a key, or the one where it would go: the first deleted one on the way, else the first empty.
  Place find(const Key& key) const {
    Payload payload;
    std::string reason;
    std::optional<U64> reusable;
    const U64 mask = segment_.slotCount() - 1;
    for (U64 slot = Traits::hash(key) & mask;; slot = (slot + 1) & mask) {
      if (!segment_.read(slot, payload)) return {reusable.value_or(slot), false, !reusable};
      if (payload[0] == static_cast<U64>(SlotState::used)) {
        if (Traits::keyOf(*Traits::decode(payload + 1, reason)) == key) return {slot, true, false};
      } else if (!reusable) {
        reusable = slot;
      }
    }
  }
  void put(U64 slot, const Record& record) {
    Payload payload{};
    payload[0] = static_cast<U64>(SlotState::used);
    Traits::encode(record, payload + 1);
    segment_.write(slot, payload);
  }
  /// Into a new segment with room for twice the records, leaving the deleted slots behind.
  void move() {
    U64 slots = 64;
    while (slots < (count_ + 1) * 4) slots *= 2;
    TableWriter moved(slots);
    Payload payload;
    std::string reason;
    for (U64 slot = 0; slot < segment_.slotCount(); ++slot) {
      if (!segment_.read(slot, payload) || payload[0] != static_cast<U64>(SlotState::used)) continue;
      moved.set(*Traits::decode(payload + 1, reason));
    }
    *this = std::move(moved);
  }

  Segment segment_;
  U64 count_ = 0;  // records
  U64 taken_ = 0;  // slots ever written: records and deleted ones
};

}  // namespace Quarn
