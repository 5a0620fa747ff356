#include "Zan/Entity.h"

#include <algorithm>

#include "Zan/ZanType.h"

namespace Zan {

NotifieeList::~NotifieeList() {
  delete many();
}

void NotifieeList::addFurther(Notifiee* notifiee) {
  if (!many()) word_ = reinterpret_cast<std::uintptr_t>(new Many{one()}) | manyBit;
  many()->push_back(notifiee);
}

void NotifieeList::remove(Notifiee* notifiee) {
  Many* list = many();
  if (!list) {
    if (one() == notifiee) word_ = 0;
    return;
  }
  std::erase(*list, notifiee);
  if (list->size() > 1) return;
  word_ = list->empty() ? 0 : reinterpret_cast<std::uintptr_t>(list->front());
  delete list;
}

NotifieeList::Snapshot::Snapshot(const NotifieeList& list) {
  if (const Many* many = list.many(); many && many->size() > few_.size()) {
    many_.reserve(many->size());
    for (Notifiee* n : *many) many_.emplace_back(n);
    size_ = static_cast<U32>(many->size());
  } else if (many) {
    for (Notifiee* n : *many) few_[size_++] = Ptr<Notifiee>(n);
  } else {
    few_[size_++] = Ptr<Notifiee>(list.one());
  }
}

Entity::~Entity() {
  ZAN_ASSERT_TEXT(notifiees_.empty(), "no notifiee outlives its notifier");
  ZAN_ASSERT_TEXT(children_ == 0, "no child outlives its parent");
  leaveParent();
}

Name Entity::name() const {
  return {};
}

std::string Entity::fullName() const {
  std::string path = parent_ ? parent_->fullName() + '/' : std::string();
  return path += name().view();
}

void Entity::parentIs(Entity* parent, AttributeId attribute) {
  if (parent == parent_ && attribute == parentAttrId_) return;
  if (held_) throwRangeException("other parent of an entity that its parent holds not allowed");
  adopt(parent, attribute, false);
  tellParent();
}

void Entity::tellParent() const {
  tell<&NotifieeConst::onParent>(parentId);
}

void Entity::zanHeldBy(Entity* parent, AttributeId attribute) {
  adopt(parent, attribute, true);
}

void Entity::zanOrphaned() {
  leaveParent();
  parentAttrId_ = 0;
}

void Entity::adopt(Entity* parent, AttributeId attribute, bool held) {
  if (attribute > maxParentAttrId) throwRangeException("Zan::Entity::parentAttrId > 4095 not allowed");
  for (const Entity* e = parent; e; e = e->parent_) {
    if (e == this) throwRangeException("parent that is the entity itself or below it not allowed");
  }
  if (parent && !held && parent->children_ == maxChildren) {
    throwRangeException("Zan::Entity::children > 524287 not allowed");
  }
  leaveParent();
  parent_ = parent;
  parentAttrId_ = attribute & maxParentAttrId;
  held_ = held;
  if (parent && !held) ++parent->children_;
}

void Entity::leaveParent() {
  if (parent_ && !held_) --parent_->children_;
  parent_ = nullptr;
  held_ = false;
}

String8 Entity::parentAttr() const {
  return parent_ ? String8(parent_->attributeName(parentAttrId_)) : String8();
}

namespace {

void appendEscaped(std::string& out, std::string_view part) {
  constexpr std::string_view hex = "0123456789ABCDEF";
  constexpr std::string_view plain = "-._~";
  for (const char c : part) {
    const auto byte = static_cast<U8>(c);
    const bool alnum = (c >= '0' && c <= '9') || (c >= 'A' && c <= 'Z') || (c >= 'a' && c <= 'z');
    if (alnum || plain.find(c) != plain.npos) {
      out += c;
    } else {
      (out += '%') += hex[byte >> 4];
      out += hex[byte & 15];
    }
  }
}

}  // namespace

std::string Entity::uriPath() const {
  std::string path = parent_ ? parent_->uriPath() : std::string();
  path += '/';
  if (parent_) appendEscaped(path, parentAttr().view());
  if (parent_ && !name().empty()) path += '/';
  appendEscaped(path, name().view());
  return path;
}

std::string_view Entity::attributeName(AttributeId attribute) const {
  switch (attribute) {
    case nameId:
      return "name";
    case parentId:
      return "parent";
    case versionId:
      return "version";
    case isNondestructingId:
      return "isNondestructing";
    default:
      return "";
  }
}

void Entity::zeroReferencesIs(bool) {
  tell<&PtrInterface::NotifieeConst::onZeroReferences>(zeroReferencesId);
}

void Entity::tellLeaving() const {
  if (notifiees_.empty()) return;
  const Ptr<Entity const> pin(this);
  const NotifieeList::Snapshot snapshot(notifiees_);
  for (const auto& notifiee : snapshot) {
    if (notifiee->references() == 1 || !notifiee->hears(this)) continue;
    try {
      notifiee->handleDefault(notifiee->zanFwkActivity(), parentAttrId_, true);
    } catch (...) {
      notificationFailed(*notifiee, parentAttrId_);
    }
  }
}

const ZanType* Entity::fwkType() const {
  static const ZanType type("Zan::Entity", PtrInterface::fwkType());
  return &type;
}

}  // namespace Zan
