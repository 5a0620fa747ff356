#pragma once

#include "Zan/TypeTable.h"

namespace Zan {

/// How a member's key reads from outside; a key that only wraps a value is specialised to that value.
template <class Key>
struct KeyValue {
  static Value of(const Key& key) { return toValue(key); }
};

/// An `AttributeIterator` on one of the collections' own iterators. The members are counted objects that know
/// their keys, or values, which are their own keys.
template <class Iterator>
class CollectionIterator : public AttributeIterator {
 public:
  using Erase = void (*)(PtrInterface& object, const Value& key);

  CollectionIterator(ObjectRef object, const Iterator& at, Erase eraseMember)
      : object_(std::move(object)), at_(at), erase_(eraseMember) {}

  std::unique_ptr<AttributeIterator> clone() const override {
    return std::make_unique<CollectionIterator>(*this);
  }
  bool nonNull() const override { return static_cast<bool>(at_); }
  void advance() override { ++at_; }
  Value key() const override {
    if (!at_) return {};
    if constexpr (requires { at_->fwkKey(); }) {
      return KeyValue<std::remove_cvref_t<decltype(at_->fwkKey())>>::of(at_->fwkKey());
    } else {
      return KeyValue<std::remove_cvref_t<decltype(*at_)>>::of(*at_);
    }
  }
  Value member() const override {
    if (!at_) return {};
    if constexpr (requires { at_->fwkKey(); }) {
      using Member = std::remove_cvref_t<decltype(*at_)>;
      if (object_.isConst()) return ObjectRef(Ptr<Member const>(&*at_));
      return ObjectRef(Ptr<Member>(const_cast<Member*>(&*at_)));
    } else {
      return toValue(*at_);
    }
  }
  void erase() override {
    if (object_.isConst()) throw ConstInstanceException("");
    if (!erase_) throw OperationNotSupportedException("");
    if (at_) erase_(const_cast<PtrInterface&>(*object_.get()), key());
  }

 private:
  ObjectRef object_;  // keeps the collection's owner alive
  Iterator at_;
  Erase erase_;
};

/// The iterator of the collection that `Begin` begins to walk; deletes members with `Erase`.
template <auto Begin, CollectionIterator<int*>::Erase Erase = nullptr>
std::unique_ptr<AttributeIterator> iterate(const ObjectRef& object) {
  using F = MemberFunction<decltype(Begin)>;
  auto& owner = static_cast<typename F::Class&>(const_cast<PtrInterface&>(*object.get()));
  return std::make_unique<CollectionIterator<typename F::Result>>(object, (owner.*Begin)(), Erase);
}

}  // namespace Zan
