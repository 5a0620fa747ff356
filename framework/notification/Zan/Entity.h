#pragma once

#include <array>
#include <typeinfo>
#include <vector>

#include "Zan/Activity.h"
#include "Zan/Export.h"
#include "Zan/Notifiee.h"
#include "Zan/Ptr.h"
#include "Zan/String8.h"

namespace Zan {

/// The notifiees of one entity, in the order of registration. One pointer large: most entities have one
/// watcher, which needs no memory.
class ZAN_EXPORT NotifieeList {
 public:
  using Notifiee = PtrInterface::NotifieeConst;

  NotifieeList() = default;
  NotifieeList(const NotifieeList&) = delete;
  NotifieeList& operator=(const NotifieeList&) = delete;
  ~NotifieeList();

  bool empty() const { return word_ == 0; }
  /// The notifiee when there is exactly one, else null.
  Notifiee* one() const { return (word_ & manyBit) == 0 ? reinterpret_cast<Notifiee*>(word_) : nullptr; }
  void add(Notifiee* notifiee) {
    if (empty()) {
      word_ = reinterpret_cast<std::uintptr_t>(notifiee);
    } else {
      addFurther(notifiee);
    }
  }
  void remove(Notifiee* notifiee);

  /// Counted references to the notifiees of one moment, of which there is one at least; one or two cost no
  /// allocation.
  class Snapshot {
   public:
    explicit Snapshot(const NotifieeList& list);
    const Ptr<Notifiee>* begin() const { return many_.empty() ? few_.data() : many_.data(); }
    const Ptr<Notifiee>* end() const { return begin() + size_; }

   private:
    std::array<Ptr<Notifiee>, 2> few_;
    std::vector<Ptr<Notifiee>> many_;
    U32 size_ = 0;
  };

 private:
  using Many = std::vector<Notifiee*>;
  static constexpr std::uintptr_t manyBit = 1;

  void addFurther(Notifiee* notifiee);
  Many* many() const { return (word_ & manyBit) != 0 ? reinterpret_cast<Many*>(word_ & ~manyBit) : nullptr; }

  std::uintptr_t word_ = 0;  // null, one notifiee, or a vector (lowest bit set)
};

/// A named object in a tree that tells registered notifiees of its changes. A parent is known by a plain
/// pointer; whoever has given a child its parent cuts it loose (`parentIs(null)`) before the parent goes,
/// which is asserted. A parent that holds the child itself, in a collection or an attribute, does so on its
/// own, and nobody else can.
class ZAN_EXPORT Entity : public VFPtrInterface {
 public:
  class NotifieeConst;

  static constexpr AttributeId zeroReferencesId = 5;
  static constexpr AttributeId nameId = 6;
  static constexpr AttributeId parentId = 7;
  static constexpr AttributeId versionId = 8;
  static constexpr AttributeId isNondestructingId = 9;

  ~Entity() override;

  /// The last part of the full name. A member of a keyed collection is named by its key.
  virtual Name name() const;
  /// The names from the root down, joined by slashes.
  std::string fullName() const;
  Entity* parent() const { return parent_; }
  void parentIs(std::nullptr_t) { parentIs(nullptr, 0); }
  /// Enters the tree under attribute `attribute` of `parent`, or leaves it (null). Throws a range exception
  /// for an entity that its parent holds, for a parent that is this entity or below it, and for more than
  /// `maxChildren` children or an attribute over `maxParentAttrId`.
  void parentIs(Entity* parent, AttributeId attribute);
  AttributeId parentAttrId() const { return parentAttrId_; }
  static constexpr AttributeId maxParentAttrId = 4095;
  static constexpr U32 maxChildren = (U32{1} << 19) - 1;
  /// The name of the parent's attribute that holds this entity; empty without a parent.
  String8 parentAttr() const;
  /// As fullName with the attribute names between, every byte outside the unreserved set of RFC 3986
  /// percent-escaped: "/mrib/route/10.0.0.0%2F8".
  std::string uriPath() const;
  /// The name of an attribute of this entity, empty for an unknown identifier.
  virtual std::string_view attributeName(AttributeId attribute) const;

  /// Tells the notifiees (`onZeroReferences`), whatever it is told.
  void zeroReferencesIs(bool) override;
  const ZanType* fwkType() const override;

  NotifieeList& notifiees() const { return notifiees_; }
  bool hasNotifiees() const { return !notifiees_.empty(); }

  /// For the parent that holds this entity, which does not need to be free before: takes it, and lets go of
  /// it, without a word. The parent calls `tellParent` when its own state is settled.
  void zanHeldBy(Entity* parent, AttributeId attribute);
  void zanOrphaned();
  void tellParent() const;
  /// Whether its parent holds it.
  bool isHeld() const { return held_; }
  /// Tells the notifiees that this entity is just leaving its collection (`handleDefault`), now, whatever
  /// their activities: afterwards it is too late to look at it.
  void tellLeaving() const;

 protected:
  Entity() = default;

  /// Delivers one change to every notifiee: calls `Handler` with `args` on each that hears this entity,
  /// at once or through its activity. What a handler throws goes to that notifiee's
  /// `onNotificationException(attribute)` and stops nobody else. Handlers may register, unregister and
  /// destroy notifiees, and drop the last reference to this entity: whoever does more than return afterwards
  /// holds one.
  template <auto Handler, class... Args>
  void tell(AttributeId attribute, const Args&... args) const {
    if (notifiees_.empty()) return;
    if (NotifieeList::Notifiee* only = notifiees_.one()) {
      if (!hears(*only, attribute)) return;
      const Pin pin(*only);
      tellOne<Handler>(*only, attribute, args...);
    } else {
      tellMany<Handler>(attribute, args...);
    }
  }

  /// Tells every notifiee that any member of a collection may have changed: first the form that is about the
  /// members, then the one that is about the whole.
  template <auto OnMembers, auto OnWhole>
  [[gnu::noinline, gnu::cold]] void tellAll(AttributeId attribute) const {
    const Ptr<Entity const> pin(this);
    tell<OnMembers>(attribute);
    tell<OnWhole>(attribute);
  }

 private:
  [[gnu::always_inline]] bool hears(const NotifieeList::Notifiee& notifiee, AttributeId attribute) const {
    return notifiee.hears(this) && !notifiee.ignores(attribute);
  }
  /// A reference for the time of a call, counted right there: g++ calls functions for what `Ptr` does where
  /// it finds much of it.
  class Pin {
   public:
    [[gnu::always_inline]] explicit Pin(const PtrInterface& object) : object_(object) {
      object_.newReference();
    }
    [[gnu::always_inline]] ~Pin() { object_.deleteReference(); }
    Pin(const Pin&) = delete;
    Pin& operator=(const Pin&) = delete;

   private:
    const PtrInterface& object_;
  };

  /// Afterwards this entity may be gone: the notifiee may have held the last reference to it.
  template <auto Handler, class... Args>
  void tellOne(NotifieeList::Notifiee& notifiee, AttributeId attribute, const Args&... args) const {
    using Class = typename HandlerClass<decltype(Handler)>::type;
    try {
      if (ActivitySm* activity = notifiee.actsm()) {
        enqueue<Handler>(*activity, notifiee, attribute, args...);
      } else {
        (static_cast<Class&>(notifiee).*Handler)(args...);
      }
    } catch (...) {
      notificationFailed(notifiee, attribute);
    }
  }
  // Kept out of line, so that the way of most changes, to one notifiee at once, is short.
  template <auto Handler, class... Args>
  [[gnu::noinline]] void tellMany(AttributeId attribute, const Args&... args) const {
    const Ptr<Entity const> pin(this);
    const NotifieeList::Snapshot snapshot(notifiees_);
    for (const auto& notifiee : snapshot) {
      if (notifiee->references() > 1 && hears(*notifiee, attribute))
        tellOne<Handler>(*notifiee, attribute, args...);
    }
  }
  template <auto Handler, class... Args>
  [[gnu::noinline]] void enqueue(ActivitySm& activity, NotifieeList::Notifiee& notifiee,
                                 AttributeId attribute, const Args&... args) const {
    activity.enqueue<Handler>(Ptr<NotifieeList::Notifiee>(&notifiee), Ptr<Entity const>(this), attribute,
                              args...);
  }

  void adopt(Entity* parent, AttributeId attribute, bool held);
  void leaveParent();

  // Here they fill the gap behind the base's 32-bit word.
  AttributeId parentAttrId_ : 12 = 0;
  U32 held_ : 1 = false;
  U32 children_ : 19 = 0;  // that it does not hold
  mutable NotifieeList notifiees_;
  Entity* parent_ = nullptr;
};

/// Notifiee of any entity; each notifier type derives its own with a handler per attribute.
class ZAN_EXPORT Entity::NotifieeConst : public PtrInterface::NotifieeConst {
 public:
  virtual void onParent() { onAttribute(parentId); }
  /// For types of entities that keep a version: they tell of it (`versionId`). The records have none.
  virtual void onVersion() { onAttribute(versionId); }

  const Entity* notifier() const { return static_cast<const Entity*>(rawNotifier()); }
};

/// Notifiee of one type of entity: each type's own derives from it. It accepts notifiers of that type only;
/// anything else is a range exception.
template <class Notifier>
class ZAN_EXPORT NotifieeOf : public Entity::NotifieeConst {
 public:
  void notifierIs(const Ptr<PtrInterface const>& notifier) override {
    const PtrInterface* n = notifier.get();
    if (n == rawNotifier()) return;
    if (n && typeid(*n) != typeid(Notifier) && !dynamic_cast<const Notifier*>(n)) {
      throwRangeException("notifier of the wrong type not allowed");
    }
    bindEntity(notifier);
  }

  const Notifier* notifier() const { return static_cast<const Notifier*>(rawNotifier()); }
};

/// An entity that holds its name.
class ZAN_EXPORT NamedEntity : public Entity {
 public:
  Name name() const override { return name_; }

 protected:
  explicit NamedEntity(Name name) : name_(std::move(name)) {}

 private:
  Name name_;
};

}  // namespace Zan
