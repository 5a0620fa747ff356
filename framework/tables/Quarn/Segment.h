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

/// The memory of one table: a memfd that holds a header page, then slots of a fixed size, then a journal of
/// one slot. It never changes its size: a table that grows moves to a new segment with a new instance number.
/// All of its memory is there from the start, so that no later touch of a page can fail.
///
/// A slot is one control word (sequence number and CRC) and the payload. The sequence number is odd while the
/// writer is in the slot; 0 says that it was never written. The CRC covers instance, slot number, sequence
/// number and payload, so that a slot that was copied, moved, torn or flipped is told from a good one. While
/// the writer is in the slot the CRC covers all but the payload.
///
/// The journal holds what the writer is about to write: it fills the journal, then the slot. A reader that
/// meets the writer in a slot takes the record from the journal. So nobody waits for a writer that has lost
/// the processor, was stopped or has died, and nobody needs to know which.
class ZAN_EXPORT Segment {
 public:
  Segment() = default;
  Segment(Segment&& other) noexcept { *this = std::move(other); }
  Segment& operator=(Segment&& other) noexcept;
  ~Segment();

  /// A new writable segment, sealed against any change of its size and against other writers. Throws
  /// Zan::Exception when there is no memory for it, or a limit on the size of files is in the way.
  static Segment create(const Layout& layout, U64 slotCount);
  /// A read-only view of a segment. Takes its own descriptor. Throws Zan::Exception, saying why, for anything
  /// that is not a sealed segment of this layout.
  static Segment attach(const Layout& layout, int fd);

  int fd() const { return fd_; }
  U64 instance() const { return instance_; }
  U64 slotCount() const { return slotCount_; }

  /// How often the writer may overtake the reads of one look-up before the look-up ends.
  static constexpr U32 mostRetries = 10'000;
  /// Copies the payload of a slot as a whole: as it was before a change or, once the change has begun, after
  /// it. Never waits. Copies anew when the slot was written meanwhile; each time takes one of `retries`, so
  /// that one bound serves for all slots of a look-up.
  Reading read(U64 slot, U64* payload, U32& retries) const;
  /// Writes the payload of a slot, so that concurrent readers see the old one or the new one, even if it
  /// never gets to the end. One writer only.
  void write(U64 slot, const U64* payload);
  /// "TABLE: slot N: REASON"
  std::string message(U64 slot, const std::string& reason) const;

 private:
  using Word = std::atomic<U64>;
  Word* slotAt(U64 slot) const;
  Word* journal() const { return slotAt(slotCount_); }
  U64 copy(const Word* words, U64* payload) const;
  const char* fault(U64 slot, U64 control, U64 copied, const U64* payload) const;
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
