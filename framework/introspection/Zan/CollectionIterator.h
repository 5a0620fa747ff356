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
  CollectionIterator(ObjectRef object, const Iterator& at, const AttributeRow& row)
      : object_(std::move(object)), at_(at), row_(&row) {}

  std::unique_ptr<AttributeIterator> clone() const override {
    return std::make_unique<CollectionIterator>(*this);
  }
  bool nonNull() const override { return at_ && !erased_ && (isCounted || isPresent()); }
  void advance() override {
    erased_ = false;
    ++at_;
  }
  Value key() const override { return nonNull() ? keyHere() : Value(); }
  Value member() const override {
    if (!nonNull()) return {};
    if constexpr (isCounted) {
      using Member = std::remove_cvref_t<decltype(*at_)>;
      return asConstAs(object_, ObjectRef(Ptr<Member>(const_cast<Member*>(&*at_))));
    } else {
      return asConstAs(object_, toValue(*at_));
    }
  }
  void erase() override {
    if (object_.isConst()) throw ConstInstanceException(row_->name);
    if (!row_->erase) throw OperationNotSupportedException(row_->name);
    if (!nonNull()) return;
    row_->erase(const_cast<PtrInterface&>(*object_.get()), key());
    erased_ = true;
  }

 private:
  static constexpr bool isCounted = requires(const Iterator& i) { i->fwkKey(); };

  Value keyHere() const {
    if constexpr (isCounted) {
      return KeyValue<std::remove_cvref_t<decltype(at_->fwkKey())>>::of(at_->fwkKey());
    } else {
      return KeyValue<std::remove_cvref_t<decltype(*at_)>>::of(*at_);
    }
  }
  /// Iterators on sets of values may hold the value, which somebody else can have deleted.
  bool isPresent() const {
    if (!row_->at) return true;
    const Value found = row_->at(*object_.get(), keyHere());
    return found.isObject() ? static_cast<bool>(found.object()) : found.as<bool>();
  }

  ObjectRef object_;  // keeps the collection's owner alive
  Iterator at_;
  const AttributeRow* row_;
  bool erased_ = false;  // by this iterator
};

/// The iterator of the collection that `Begin` begins to walk. It deletes members as the row does.
template <auto Begin>
std::unique_ptr<AttributeIterator> iterate(const ObjectRef& object, const AttributeRow& row) {
  using F = MemberFunction<decltype(Begin)>;
  auto& owner = static_cast<typename F::Class&>(const_cast<PtrInterface&>(*object.get()));
  return std::make_unique<CollectionIterator<typename F::Result>>(object, (owner.*Begin)(), row);
}

}  // namespace Zan
