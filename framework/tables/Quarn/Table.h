#pragma once

#include <algorithm>
#include <bit>
#include <functional>
#include <optional>

#include "Quarn/Segment.h"

namespace Quarn {

/// Shared-memory hash tables, one writer and any number of readers in other processes. The slot array is the
/// hash index (open addressing, linear probing, at most half full), so that the memory holds no pointer and
/// no offset that corruption could lead astray. `Traits` says what a record is:
///   Record, Key; layout; keyOf(record), hash(key); encode(record, words), decode(words, reason) -> optional.
/// The first payload word is the slot's state; the record has the others.
/// A deleted slot keeps the look-ups of those behind it going; the next record that passes takes it over.
enum class SlotState : U64 { empty = 0, used = 1, deleted = 2, bad = 3 };

/// A slot's content after all checks, in memory of one's own: `record` when used, `fault` (a whole message)
/// when bad. `bad` is never in shared memory.
template <class Record>
struct SlotContent {
  SlotState state;
  std::optional<Record> record;
  std::string fault;
};

/// Copies a slot and checks the copy. Allocates only to word a fault. `retries`: see Segment::read.
template <class Traits>
SlotContent<typename Traits::Record> inspect(const Segment& segment, U64 slot, U32& retries) {
  U64 payload[Traits::layout.payloadWords];
  const auto bad = [&](const std::string& reason) -> SlotContent<typename Traits::Record> {
    return {SlotState::bad, std::nullopt, segment.message(slot, reason)};
  };
  const Reading reading = segment.read(slot, payload, retries);
  if (reading.fault) return bad(reading.fault);
  if (!reading.written) return {SlotState::empty, std::nullopt, {}};
  if (payload[0] == static_cast<U64>(SlotState::deleted)) return {SlotState::deleted, std::nullopt, {}};
  if (payload[0] != static_cast<U64>(SlotState::used)) return bad("unknown state");
  std::string reason;
  SlotContent<typename Traits::Record> content{SlotState::used, Traits::decode(payload + 1, reason), {}};
  if (!content.record) return bad(reason);
  return content;
}

template <class Traits>
SlotContent<typename Traits::Record> inspect(const Segment& segment, U64 slot) {
  U32 retries = Segment::mostRetries;
  return inspect<Traits>(segment, slot, retries);
}

/// The reading side. Takes no lock, waits for nobody, and allocates only to word a fault; every shared word
/// is copied once and then checked. A record is seen as it was before or after a change, never in between;
/// one that the writer removes and adds again during a walk may come twice or not at all. One thread at a
/// time.
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

  /// The record under a key. Bad slots on the way to it are passed over, as many as there may be in a table
  /// that is of use; when it is not found behind them either, a CorruptionException for the first one is
  /// thrown, since it may have been there. Ends in milliseconds whatever the memory holds and whatever the
  /// writer does.
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
  /// each, on bad ones, where `get` throws. Not to outlive the reader.
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
    if (!content_.record) throw CorruptionException(content_.fault);
    return *content_.record;
  }
  Record operator*() const { return get(); }
  std::optional<Record> getOrHandled() const {
    return content_.record ? content_.record : table_->corrupted(content_.fault);
  }

 private:
  /// Goes to the next slot worth standing on, from this one.
  void settle() {
    for (; slot_ < table_->slotCount(); ++slot_) {
      content_ = inspect<Traits>(table_->segment_, slot_);
      if (content_.state == SlotState::used || content_.state == SlotState::bad) return;
    }
  }

  const TableReader* table_;
  U64 slot_ = 0;
  SlotContent<Record> content_{};
};

template <class Traits>
std::optional<typename Traits::Record> TableReader<Traits>::lookup(const Key& key) const {
  constexpr U32 mostFaults = 64;
  std::string fault;
  U32 faults = 0;
  U32 retries = Segment::mostRetries;
  const U64 mask = slotCount() - 1;
  U64 slot = Traits::hash(key) & mask;
  for (U64 probes = 0; probes <= mask; ++probes, slot = (slot + 1) & mask) {
    SlotContent<Record> content = inspect<Traits>(segment_, slot, retries);
    if (content.state == SlotState::empty) break;
    if (content.record && Traits::keyOf(*content.record) == key) return content.record;
    if (content.state != SlotState::bad) continue;
    if (faults == 0) fault = std::move(content.fault);
    if (++faults == mostFaults) break;
  }
  if (faults > 0) throw CorruptionException(fault);
  return std::nullopt;
}

/// The writing side. Owns the current segment; growing moves all records into a new one of twice the slots,
/// and whoever owns the readers attaches them to `fd()` when `instance()` has become another. Growing throws
/// Zan::Exception when there is no memory for it or a limit on the size of files is reached; the table is
/// then as before.
template <class Traits>
class TableWriter {
 public:
  using Record = typename Traits::Record;
  using Key = typename Traits::Key;

  /// Starts with at least `slotCount` slots, which hold half as many records before the first growth. Throws
  /// as growing does.
  explicit TableWriter(U64 slotCount = leastSlots)
      : segment_(
            Segment::create(Traits::layout, std::bit_ceil(std::clamp(slotCount, leastSlots, mostSlots)))) {}

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
    if (place.fresh && (taken_ + 1) * 2 > segment_.slotCount()) {
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
  static constexpr U64 leastSlots = 64;
  static constexpr U64 mostSlots = U64{1} << 63;  // more than any machine has memory for

  using Payload = U64[Traits::layout.payloadWords];
  struct Place {
    U64 slot;
    bool used;   // holds the key
    bool fresh;  // was never written
  };

  /// A slot of the writer's own, which nobody else can have spoilt: throws if it is spoilt nevertheless.
  SlotContent<Record> at(U64 slot) const {
    SlotContent<Record> content = inspect<Traits>(segment_, slot);
    if (content.state == SlotState::bad) throw CorruptionException(content.fault);
    return content;
  }
  /// The slot of a key, or the one where it would go: the first deleted one on the way, else the first empty.
  Place find(const Key& key) const {
    std::optional<U64> reusable;
    const U64 mask = segment_.slotCount() - 1;
    for (U64 slot = Traits::hash(key) & mask;; slot = (slot + 1) & mask) {
      const SlotContent<Record> content = at(slot);
      if (content.state == SlotState::empty) return {reusable.value_or(slot), false, !reusable};
      if (content.record && Traits::keyOf(*content.record) == key) return {slot, true, false};
      if (!content.record && !reusable) reusable = slot;
    }
  }
  void put(U64 slot, const Record& record) {
    Payload payload{};
    payload[0] = static_cast<U64>(SlotState::used);
    Traits::encode(record, payload + 1);
    segment_.write(slot, payload);
  }
  /// Into a new segment, leaving the deleted slots behind. It is up to a third full, so that there is room
  /// for half as many records again before the next move.
  void move() {
    TableWriter moved((count_ + 1) * 3);
    for (U64 slot = 0; slot < segment_.slotCount(); ++slot) {
      if (const SlotContent<Record> content = at(slot); content.record) moved.set(*content.record);
    }
    *this = std::move(moved);
  }

  Segment segment_;
  U64 count_ = 0;  // records
  U64 taken_ = 0;  // slots ever written: records and deleted ones
};

}  // namespace Quarn
