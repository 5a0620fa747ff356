#pragma once

#include <atomic>
#include <cstddef>
#include <string>
#include <utility>

#include "Quarn/CorruptionException.h"
#include "Zan/Types.h"

namespace Quarn {

/// What a table's segments look like; equal on both sides, or attaching is refused.
struct Layout {
  const char* name;  ///< for messages
  U32 kind;
  U32 payloadWords;  ///< of a slot, state word included

  U32 slotWords() const { return payloadWords + 1; }
  U64 hash() const;
};

/// What reading a slot gave: whether it was ever written and, when what it holds is bad, the reason (else
/// null).
struct Reading {
  bool written;
  const char* fault;
};

/// The memory of one table: a memfd that holds a header page and then slots of a fixed size. It never changes
/// its size: a table that grows moves to a new segment with a new instance number.
///
/// A slot is one control word (sequence number and CRC) and the payload. The sequence number is odd while the
/// writer is in the slot; 0 says that it was never written. The CRC covers instance, slot number, sequence
/// number and payload, so that a slot that was copied, moved, torn or flipped is told from a good one. While
/// the writer is in the slot the CRC covers all but the payload: a reader waits only for a writer that is
/// really there, and not for a sequence number that a flipped bit has made odd.
class ZAN_EXPORT Segment {
 public:
  Segment() = default;
  Segment(Segment&& other) noexcept { *this = std::move(other); }
  Segment& operator=(Segment&& other) noexcept;
  ~Segment();

  /// A new writable segment, sealed against any change of its size and against other writers.
  static Segment create(const Layout& layout, U64 slotCount);
  /// A read-only view of a segment. Takes its own descriptor. Throws Zan::Exception, saying why, for anything
  /// that is not a sealed segment of this layout.
  static Segment attach(const Layout& layout, int fd);

  int fd() const { return fd_; }
  U64 instance() const { return instance_; }
  U64 slotCount() const { return slotCount_; }

  /// Copies the payload of a slot, once and as a whole. Waits for a writer that is in the slot, but no longer
  /// than some tens of milliseconds: a writer that died there must not stop its readers.
  Reading read(U64 slot, U64* payload) const;
  /// Writes the payload of a slot, so that concurrent readers see the old one or the new one. One writer
  /// only.
  void write(U64 slot, const U64* payload);
  /// "TABLE: slot N: REASON"
  std::string message(U64 slot, const std::string& reason) const;

 private:
  using Word = std::atomic<U64>;
  Word* slotAt(U64 slot) const;
  U32 placeCrc(U64 slot, U32 sequence) const;
  U32 crc(U64 slot, U32 sequence, const U64* payload) const;

  const Layout* layout_ = nullptr;
  int fd_ = -1;
  void* base_ = nullptr;
  std::size_t bytes_ = 0;
  U64 instance_ = 0;
  U64 slotCount_ = 0;
};

}  // namespace Quarn
