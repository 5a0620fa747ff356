#pragma once

#include "Zan/Types.h"

namespace Zan {

template <class Change>
class Tap;

/// Where listeners plug in that must hear every change of a record, whatever is active, registered or a
/// zombie: records keep them beside their notifiees and tell them first, before any notifiee can react. A
/// listener only takes note; it changes nothing. One pointer large.
template <class Change>
class Taps {
 public:
  Taps() = default;
  Taps(const Taps&) = delete;
  Taps& operator=(const Taps&) = delete;
  ~Taps() {
    while (first_) first_->detach();
  }
  void tell(const Change& change) const {
    for (Tap<Change>* tap = first_; tap; tap = tap->next_) tap->hear_(tap->listener_, change);
  }

 private:
  friend class Tap<Change>;
  mutable Tap<Change>* first_ = nullptr;
};

/// One listener. Detached when it dies, and when what it listens to dies.
template <class Change>
class Tap {
 public:
  /// Calls `Hear` on `listener`, which outlives the tap.
  template <auto Hear, class Listener>
  static Tap to(Listener* listener) {
    return Tap([](void* l, const Change& c) { (static_cast<Listener*>(l)->*Hear)(c); }, listener);
  }
  Tap(const Tap&) = delete;
  Tap& operator=(const Tap&) = delete;
  ~Tap() { detach(); }

  bool isOn(const Taps<Change>& taps) const { return on_ == &taps; }
  bool isOn() const { return on_ != nullptr; }
  void attach(const Taps<Change>& taps) {
    detach();
    on_ = &taps;
    next_ = taps.first_;
    taps.first_ = this;
  }
  void detach() {
    if (!on_) return;
    Tap** place = &on_->first_;
    while (*place != this) place = &(*place)->next_;
    *place = next_;
    on_ = nullptr;
  }

 private:
  friend class Taps<Change>;
  using Hear = void (*)(void*, const Change&);
  Tap(Hear hear, void* listener) : hear_(hear), listener_(listener) {}

  Hear hear_;
  void* listener_;
  const Taps<Change>* on_ = nullptr;
  Tap* next_ = nullptr;
};

}  // namespace Zan
