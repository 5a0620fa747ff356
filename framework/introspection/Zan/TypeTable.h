#pragma once

#include <functional>
#include <memory>
#include <span>
#include <tuple>

#include "Zan/Notifiee.h"
#include "Zan/Value.h"
#include "Zan/ZanType.h"

namespace Zan {

/// What can be done with an attribute. From 128 on, operations change the instance.
enum class AttributeOp : U8 {
  read = 0,
  readAt = 1,   ///< one argument, the key: the member of a collection, null when there is none
  count = 2,    ///< members of a collection
  iterate = 3,  ///< an `IteratorPtr` to the first member of a collection
  set = 128,    ///< one argument, the value; or those of a mutator that has several
  erase = 129,  ///< one argument, the key
  eraseAll = 130,
  invoke = 131,
};
constexpr bool isMutating(AttributeOp op) {
  return static_cast<U8>(op) >= 128;
}

/// A 6-bit set.
class ZAN_EXPORT ZanAttrIntrospectionFlags {
 public:
  static constexpr U32 collection = 0x01;
  static constexpr U32 handler = 0x02;
  static constexpr U32 constInput = 0x04;
  static constexpr U32 readOnly = 0x08;
  static constexpr U32 reactor = 0x10;
  static constexpr U32 framework = 0x20;  ///< served by the base type's dispatcher
  static constexpr U32 max = 0x3F;

  constexpr ZanAttrIntrospectionFlags(U32 value)
      : value_(static_cast<U8>(value)) {  // NOLINT: a checked number
    if (value > max) refuse();
  }
  constexpr U8 value() const { return value_; }
  constexpr bool has(U32 flag) const { return (value_ & flag) != 0; }

 private:
  [[noreturn]] static void refuse();
  U8 value_;
};

/// Walks a collection. Survives the deletion of what it stands on, and of everything: then it reads as null
/// until it is advanced.
class ZAN_EXPORT AttributeIterator {
 public:
  virtual ~AttributeIterator();
  virtual std::unique_ptr<AttributeIterator> clone() const = 0;
  /// Whether it stands on a member.
  virtual bool nonNull() const = 0;
  virtual void advance() = 0;
  virtual Value key() const = 0;
  virtual Value member() const = 0;
  /// Deletes the member; throws for a collection whose members can't be.
  virtual void erase() = 0;
};

/// How the operation `iterate` hands out an iterator.
using IteratorPtr = std::shared_ptr<AttributeIterator>;
template <>
struct ValueTraits<IteratorPtr> {
  static constexpr std::string_view name = "Zan::AttributeIterator";
  static std::string text(const IteratorPtr& v) { return v ? v->key().text() : ""; }
  static std::optional<IteratorPtr> parse(std::string_view) { return std::nullopt; }
};

/// One argument of an operation, or the index of a collection: its name and the name of its type.
struct ArgumentRow {
  std::string_view name;
  std::string_view type;
};

using Arguments = std::span<const Value>;

/// One way to call a handler, operation or mutator with arguments. `call` gets one value for each argument,
/// in order.
struct Form {
  std::span<const ArgumentRow> arguments;
  Value (*call)(PtrInterface& object, Arguments arguments, std::span<const ArgumentRow> rows);
};

/// One member of a type: a row a member, and all that reflective access knows of it.
struct AttributeRow {
  AttributeId id;
  std::string_view name;
  std::string_view type;
  ZanAttrIntrospectionFlags flags = 0;
  Value (*get)(const PtrInterface& object) = nullptr;
  void (*set)(PtrInterface& object, const Value& value, std::string_view type) = nullptr;
  ArgumentRow index = {};  ///< of a collection
  Value (*at)(const PtrInterface& object, const Value& key) = nullptr;
  U32 (*count)(const PtrInterface& object) = nullptr;
  std::unique_ptr<AttributeIterator> (*iterate)(const ObjectRef& object, const AttributeRow& row) = nullptr;
  void (*erase)(PtrInterface& object, const Value& key) = nullptr;
  void (*eraseAll)(PtrInterface& object) = nullptr;
  std::span<const Form> forms = {};

  /// Whether it is set by a mutator with arguments of its own rather than by a value.
  constexpr bool hasMutatorForms() const {
    return !forms.empty() && !flags.has(ZanAttrIntrospectionFlags::handler);
  }
};

/// All members of one type, in the order of their registration.
struct TypeTable {
  std::string_view name;
  std::string_view baseName;
  std::span<const AttributeRow> rows;
  /// Makes an `IntrospectionReactor` for objects of this type.
  Ptr<PtrInterface::NotifieeConst> (*reactor)(std::function<void(std::string_view)> listener) = nullptr;
};

/// A function that makes objects, by its full name.
struct FactoryRow {
  std::string_view name;
  std::string_view type;
  std::span<const ArgumentRow> arguments;
  Value (*call)(Arguments arguments, std::span<const ArgumentRow> rows);
};

/// Whether the rows that are not the framework's have the identifiers first to last, each once.
constexpr bool covers(std::span<const AttributeRow> rows, AttributeId first, AttributeId last) {
  for (AttributeId id = first; id <= last; ++id) {
    U32 found = 0;
    for (const AttributeRow& row : rows) found += row.id == id;
    if (found != 1) return false;
  }
  for (const AttributeRow& row : rows) {
    if (!row.flags.has(ZanAttrIntrospectionFlags::framework) && (row.id < first || row.id > last))
      return false;
  }
  return true;
}

// ---- What fills the rows ----

template <class T>
struct IsPtr : std::false_type {};
template <class T>
struct IsPtr<Ptr<T>> : std::true_type {};

/// A C++ value as a `Value`.
template <class T>
Value toValue(const T& value) {
  if constexpr (IsPtr<T>::value) {
    return ObjectRef(value);
  } else if constexpr (std::is_pointer_v<T>) {
    return ObjectRef(Ptr<std::remove_pointer_t<T>>(value));
  } else {
    return Value::of<T>(value);
  }
}

/// A `Value` as the C++ argument that a function takes.
template <class T>
std::remove_cvref_t<T> fromValue(const Value& value, std::string_view type) {
  using Plain = std::remove_cvref_t<T>;
  if constexpr (IsPtr<Plain>::value) {
    if (value.isNothing() || value.typeName() == "text") throw TypeException(type, value.typeName());
    return value.objectAs<typename Plain::element_type>(type);
  } else if constexpr (std::is_pointer_v<Plain>) {
    if (value.isNothing() || value.typeName() == "text") throw TypeException(type, value.typeName());
    return value.objectAs<std::remove_pointer_t<Plain>>(type).get();
  } else {
    return value.as<Plain>();
  }
}

template <class F>
struct MemberFunction;
template <class R, class C, class... Args>
struct MemberFunction<R (C::*)(Args...)> {
  using Class = C;
  using Result = R;
  using Tuple = std::tuple<Args...>;
  static constexpr std::size_t arity = sizeof...(Args);
};
template <class R, class C, class... Args>
struct MemberFunction<R (C::*)(Args...) const> : MemberFunction<R (C::*)(Args...)> {};

template <auto Getter>
Value get(const PtrInterface& object) {
  using F = MemberFunction<decltype(Getter)>;
  return toValue(
      std::remove_cvref_t<typename F::Result>((static_cast<const typename F::Class&>(object).*Getter)()));
}

template <auto Constant>
Value getConstant(const PtrInterface&) {
  return toValue(std::remove_cvref_t<decltype(Constant)>(Constant));
}

template <auto Setter>
void set(PtrInterface& object, const Value& value, std::string_view type) {
  using F = MemberFunction<decltype(Setter)>;
  (static_cast<typename F::Class&>(object).*
   Setter)(fromValue<std::tuple_element_t<0, typename F::Tuple>>(value, type));
}

template <auto Lookup>
Value at(const PtrInterface& object, const Value& key) {
  using F = MemberFunction<decltype(Lookup)>;
  using Key = std::remove_cvref_t<std::tuple_element_t<0, typename F::Tuple>>;
  return toValue(std::remove_cvref_t<typename F::Result>(
      (static_cast<const typename F::Class&>(object).*Lookup)(key.as<Key>())));
}

template <auto Count>
U32 count(const PtrInterface& object) {
  return (static_cast<const typename MemberFunction<decltype(Count)>::Class&>(object).*Count)();
}

template <auto Delete>
void erase(PtrInterface& object, const Value& key) {
  using F = MemberFunction<decltype(Delete)>;
  using Key = std::remove_cvref_t<std::tuple_element_t<0, typename F::Tuple>>;
  (static_cast<typename F::Class&>(object).*Delete)(key.as<Key>());
}

template <auto DeleteAll>
void eraseAll(PtrInterface& object) {
  (static_cast<typename MemberFunction<decltype(DeleteAll)>::Class&>(object).*DeleteAll)();
}

template <auto Function>
Value call(PtrInterface& object, Arguments arguments, std::span<const ArgumentRow> rows) {
  using F = MemberFunction<decltype(Function)>;
  auto& self = static_cast<typename F::Class&>(object);
  return [&]<std::size_t... i>(std::index_sequence<i...>)->Value {
    // In braces, so that the first wrong argument is the one that is named.
    const std::tuple<std::remove_cvref_t<std::tuple_element_t<i, typename F::Tuple>>...> values{
        fromValue<std::tuple_element_t<i, typename F::Tuple>>(arguments[i], rows[i].type)...};
    if constexpr (std::is_void_v<typename F::Result>) {
      (self.*Function)(std::get<i>(values)...);
      return {};
    } else {
      return toValue(std::remove_cvref_t<typename F::Result>((self.*Function)(std::get<i>(values)...)));
    }
  }
  (std::make_index_sequence<F::arity>{});
}

template <class F>
struct FreeFunction;
template <class R, class... Args>
struct FreeFunction<R (*)(Args...)> {
  using Tuple = std::tuple<Args...>;
  static constexpr std::size_t arity = sizeof...(Args);
};

/// The same for a free function.
template <auto Function>
Value callFree(Arguments arguments, std::span<const ArgumentRow> rows) {
  using F = FreeFunction<decltype(Function)>;
  return [&]<std::size_t... i>(std::index_sequence<i...>)->Value {
    const std::tuple<std::remove_cvref_t<std::tuple_element_t<i, typename F::Tuple>>...> values{
        fromValue<std::tuple_element_t<i, typename F::Tuple>>(arguments[i], rows[i].type)...};
    return toValue(Function(std::get<i>(values)...));
  }
  (std::make_index_sequence<F::arity>{});
}

}  // namespace Zan
