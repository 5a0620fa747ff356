#pragma once

#include <array>
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

  /// Counted references to the notifiees of one moment; one or two cost no allocation.
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
/// pointer; whoever owns the child cuts it loose (`parentIs(null)`) before the parent goes.
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
  /// Enters the tree under attribute `attribute` of `parent`, or leaves it (null).
  void parentIs(Entity* parent, AttributeId attribute);
  AttributeId parentAttrId() const { return parentAttrId_; }
  /// The name of the parent's attribute that holds this entity; empty without a parent.
  String8 parentAttr() const;
  /// As fullName with the attribute names between, every byte outside the unreserved set of RFC 3986
  /// percent-escaped: "/mrib/route/10.0.0.0%2F8".
  std::string uriPath() const;
  /// The name of an attribute of this entity, empty for an unknown identifier.
  virtual std::string_view attributeName(AttributeId attribute) const;

  void zeroReferencesIs(bool) override;
  const ZanType* fwkType() const override;

  NotifieeList& notifiees() const { return notifiees_; }
  bool hasNotifiees() const { return !notifiees_.empty(); }

  /// Lets go of a child whose parent is being destroyed, without a word.
  void zanOrphaned() {
    parent_ = nullptr;
    parentAttrId_ = 0;
  }
  /// Tells the notifiees that this entity is just leaving its collection (`handleDefault`), now, whatever
  /// their activities: afterwards it is too late to look at it.
  void tellLeaving() const;

 protected:
  Entity() = default;

  /// Delivers one change to every notifiee: calls `Handler` with `args` on each that hears this entity,
  /// at once or through its activity. What a handler throws goes to that notifiee's
  /// `onNotificationException(attribute)` and stops nobody else. Handlers may register, unregister and
  /// destroy notifiees, this entity's last outside reference included.
  template <auto Handler, class... Args>
  void tell(AttributeId attribute, const Args&... args) const {
    if (notifiees_.empty()) return;
    if (NotifieeList::Notifiee* only = notifiees_.one()) {
      if (hears(*only, attribute)) tellOne<Handler>(Ptr<NotifieeList::Notifiee>(only), attribute, args...);
    } else {
      tellMany<Handler>(attribute, args...);
    }
  }

 private:
  bool hears(const NotifieeList::Notifiee& notifiee, AttributeId attribute) const {
    return notifiee.hears(this) && !notifiee.ignores(attribute);
  }
  /// Afterwards this entity may be gone: the notifiee may have held the last reference to it.
  template <auto Handler, class... Args>
  void tellOne(const Ptr<NotifieeList::Notifiee>& notifiee, AttributeId attribute,
               const Args&... args) const {
    if (ActivitySm* activity = notifiee->actsm()) {
      enqueue<Handler>(*activity, notifiee, attribute, args...);
    } else {
      deliver<Handler>(*notifiee, attribute, args...);
    }
  }
  // Kept out of line, so that the way of most changes, to one notifiee at once, is short.
  template <auto Handler, class... Args>
  [[gnu::noinline]] void tellMany(AttributeId attribute, const Args&... args) const {
    const Ptr<Entity const> pin(this);
    const NotifieeList::Snapshot snapshot(notifiees_);
    for (const auto& notifiee : snapshot) {
      if (notifiee->references() > 1 && hears(*notifiee, attribute))
        tellOne<Handler>(notifiee, attribute, args...);
    }
  }
  template <auto Handler, class... Args>
  [[gnu::noinline]] void enqueue(ActivitySm& activity, const Ptr<NotifieeList::Notifiee>& notifiee,
                                 AttributeId attribute, const Args&... args) const {
    activity.enqueue<Handler>(notifiee, Ptr<Entity const>(this), attribute, args...);
  }

  AttributeId parentAttrId_ = 0;  // here it fills the gap behind the base's 32-bit word
  mutable NotifieeList notifiees_;
  Entity* parent_ = nullptr;
};

/// Notifiee of any entity; each notifier type derives its own with a handler per attribute.
class ZAN_EXPORT Entity::NotifieeConst : public PtrInterface::NotifieeConst {
 public:
  virtual void onParent() { onAttribute(parentId); }
  virtual void onVersion() { onAttribute(versionId); }

  const Entity* notifier() const { return static_cast<const Entity*>(rawNotifier()); }
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
