#pragma once

#include "Zan/Notifiee.h"

namespace Zan {

/// A state machine's reactor: a notifiee with a plain back pointer to its owner, which the owner clears when
/// the reactor leaves it. Without an owner it does nothing.
template <class NotifieeBase, class Owner>
class Reactor : public NotifieeBase {
 public:
  using Notifier = std::remove_cvref_t<decltype(*std::declval<const NotifieeBase&>().notifier())>;

  void hasNotificationActiveIs(bool active) override {
    if (active != this->hasNotificationActive()) NotifieeBase::hasNotificationActiveIs(active);
  }
  /// Makes the reactor a zombie, which hears nothing, or brings it back.
  virtual void zanDoZombieReactors(bool zombie) {
    if (zombie == this->isZombie()) return;
    if (this->notifier()) this->hasNotificationActiveIs(!zombie);
    this->isMarkedForDeletionIs(zombie);
  }

  /// The notifier as a counted reference; null when unbound.
  Ptr<Notifier const> notifierPtr() const { return Ptr<Notifier const>(this->notifier()); }

 protected:
  explicit Reactor(Owner* owner) : owner_(owner) {}
  Owner* owner() const { return owner_; }
  void ownerIs(Owner* owner) { owner_ = owner; }
  /// Binds without telling the derived class: for constructors, and for overrides of `notifierIs`.
  void bind(const Ptr<Notifier const>& notifier) {
    if (notifier.get() != this->rawNotifier()) this->bindEntity(notifier);
  }

 private:
  Owner* owner_;
};

/// Drops a reactor that its owner no longer wants: it hears nothing more and knows no owner.
template <class R, class Clear>
void retire(const Ptr<R>& reactor, Clear clearOwner) {
  if (!reactor) return;
  reactor->zanDoZombieReactors(true);
  ((*reactor).*clearOwner)(nullptr);
}

}  // namespace Zan
