#pragma once

#include <string>
#include <vector>

#include "Zan/Introspection.h"

namespace Zan {

/// What to do to which attribute.
struct Operation {
  AttributeId attribute;
  AttributeOp op;
};

/// An argument by name. Without name, the next one in order.
struct NamedArgument {
  std::string name;
  Value value;
};

/// Access to an object's attributes and operations by identifier or by name. Made from a reference to a const
/// object it refuses every operation that changes the object, and so do the handles that are read through it.
///
/// Every failure throws an `IntrospectionException` that carries the attribute's name, and changes nothing.
class ZAN_EXPORT GenericIf {
 public:
  GenericIf() = default;
  /// Looks the object's type up, once for all that is done through the handle.
  GenericIf(ObjectRef object);  // NOLINT: a view
  template <class T>
  GenericIf(const Ptr<T>& object) : GenericIf(ObjectRef(object)) {}  // NOLINT: likewise

  explicit operator bool() const { return static_cast<bool>(object_); }
  const ObjectRef& object() const { return object_; }
  /// The type whose table serves this object first; null for null and for an object of no registered type.
  const TypeEntry* type() const { return type_; }
  /// Identifier of a name. Throws for a name that neither the type nor its base types have.
  AttributeId attributeId(std::string_view name) const;

  /// Dispatches one operation. Its arguments are positional: a value to set, a key, or those of a handler or
  /// mutator. A mutator with several arguments returns what it has made.
  Value attributeOp(Operation operation, Arguments arguments = {}) const;
  /// Walks a collection; what the operation `iterate` hands out as a value.
  std::unique_ptr<AttributeIterator> iterator(AttributeId attribute) const;

  // The same by name.
  Value read(std::string_view name) const;
  Value read(std::string_view name, const Value& key) const;
  void set(std::string_view name, const Value& value) const;
  /// Calls the form of a handler, or of a mutator with several arguments, that has these arguments.
  Value call(std::string_view name, const std::vector<NamedArgument>& arguments = {}) const;

 private:
  const AttributeRow* find(AttributeId attribute) const;
  const AttributeRow& row(AttributeId attribute) const;
  Value dispatch(const AttributeRow& row, AttributeOp op, Arguments arguments) const;
  Value invoke(const AttributeRow& row, Arguments arguments) const;
  PtrInterface& mutableObject() const { return const_cast<PtrInterface&>(*object_.get()); }

  ObjectRef object_;
  const TypeEntry* type_ = nullptr;
};

/// Calls a registered factory by its full name ("Routing::Multicast::Rib::mribSmFactory").
ZAN_EXPORT Value callFactory(std::string_view name, const std::vector<NamedArgument>& arguments = {});

}  // namespace Zan
