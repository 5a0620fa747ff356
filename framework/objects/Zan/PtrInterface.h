#pragma once

#include <atomic>
#include <cstddef>

#include "Zan/Assert.h"
#include "Zan/Export.h"
#include "Zan/MemPool.h"
#include "Zan/SingleThreaded.h"
#include "Zan/Types.h"

namespace Zan {

class ZanType;

/// Base of every counted object. One 32-bit word holds the reference count in its low 24 bits and flags in
/// its top byte; it changes by atomic read-modify-write, so references may be shared between threads (while
/// the process has a single thread, by plain loads and stores, which nobody can tell apart then). An object
/// is born with a count of 1, which `Zan::adopt` hands to the first `Ptr`, and is destroyed when the count
/// reaches zero. While it is being destroyed, references to it may be taken and dropped again; that one is
/// left when it has gone is asserted against.
class ZAN_EXPORT PtrInterface {
 public:
  class NotifieeConst;

  static constexpr U32 countMask = 0x00FFFFFF;
  static constexpr U32 zombieFlag = 0x80000000;
  static constexpr U32 notificationActiveFlag = 0x40000000;
  static constexpr U32 destructingFlag = 0x20000000;
  static constexpr U32 registeredFlag = 0x10000000;
  static constexpr U32 dyingFlag = 0x08000000;
  static constexpr U32 waitingFlag = 0x04000000;
  /// A word whose top byte is exactly this belongs to an object that is never counted (one with static
  /// storage, say): taking and dropping references and setting flags leave it as it is.
  static constexpr U32 neverCounted = 0x1F000000;

  PtrInterface() = default;
  PtrInterface(const PtrInterface&) = delete;
  PtrInterface& operator=(const PtrInterface&) = delete;

  // The order of these virtual operations is part of the interface.
  virtual void hasNotificationActiveIs(bool active) { flagIs(notificationActiveFlag, active); }
  /// Audit hooks: an object that can check itself reports through them what it finds; by default, nothing.
  virtual void zanAuditErrors(U32) {}
  virtual void auditErrors(U32) {}
  virtual void isNondestructingIs(bool nondestructing) { flagIs(destructingFlag, !nondestructing); }
  virtual void zeroReferencesIs(bool) {}
  virtual const ZanType* fwkType() const;
  virtual ~PtrInterface();

  U32 countWord() const { return word_.load(std::memory_order_relaxed); }
  U32 references() const { return countWord() & countMask; }
  bool isCounted() const { return (countWord() & ~countMask) != neverCounted; }
  /// The zombie flag, which is also the mark for deletion.
  bool isZombie() const { return (countWord() & zombieFlag) != 0; }
  bool hasNotificationActive() const { return (countWord() & notificationActiveFlag) != 0; }
  /// The last reference has gone, and the object is being destroyed.
  bool isDying() const { return (countWord() & dyingFlag) != 0; }
  bool isNondestructing() const { return (countWord() & destructingFlag) == 0; }
  void isMarkedForDeletionIs(bool marked) { flagIs(zombieFlag, marked); }
  /// From now on the object is never counted. For objects that outlive every reference to them.
  void isNeverCountedIs() { word_.store(neverCounted | references(), std::memory_order_relaxed); }

  [[gnu::always_inline]] void newReference() const {
    const U32 before = countWord();
    if ((before & ~countMask) == neverCounted) return;
    if (!singleThreaded()) return newSharedReference();
    word_.store(before + 1, std::memory_order_relaxed);
    if ((before & countMask) >= countMask - 1) refuseReference();
  }
  [[gnu::always_inline]] void deleteReference() const {
    const U32 before = countWord();
    if ((before & ~countMask) == neverCounted) return;
    if (!singleThreaded()) return deleteSharedReference();
    word_.store(before - 1, std::memory_order_relaxed);
    if ((before & countMask) == 1) handleZeroRef();
  }

 protected:
  bool flag(U32 which) const { return (countWord() & which) != 0; }
  /// An object that is born with these flags set.
  explicit PtrInterface(U32 flags) : word_(flags | 1) {}
  void flagIs(U32 which, bool on) {
    const U32 before = countWord();
    if ((before & ~countMask) == neverCounted || ((before & which) == which) == on) return;
    if (singleThreaded()) {
      word_.store(on ? before | which : before & ~which, std::memory_order_relaxed);
    } else if (on) {
      word_.fetch_or(which, std::memory_order_relaxed);
    } else {
      word_.fetch_and(~which, std::memory_order_relaxed);
    }
  }

 private:
  // Out of line, so that counting stays short enough to be inlined everywhere.
  void handleZeroRef() const;
  void newSharedReference() const;
  void deleteSharedReference() const;
  [[noreturn, gnu::cold]] static void refuseReference();

  mutable std::atomic<U32> word_{1};
};

/// A counted object with a virtual table, allocated from the pool.
class ZAN_EXPORT VFPtrInterface : public PtrInterface {
 public:
  static void* operator new(std::size_t size) { return ZanMemPool::allocate(size); }
  static void* operator new(std::size_t, void* place) { return place; }
  static void operator delete(void* object, std::size_t size) noexcept { ZanMemPool::release(object, size); }
  static void operator delete(void*, void*) noexcept {}

  VFPtrInterface() = default;

 protected:
  using PtrInterface::PtrInterface;
};

}  // namespace Zan
