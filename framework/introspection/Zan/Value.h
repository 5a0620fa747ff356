#pragma once

#include <any>
#include <charconv>
#include <optional>
#include <string>
#include <string_view>

#include "Zan/Export.h"
#include "Zan/IntrospectionException.h"
#include "Zan/Ptr.h"
#include "Zan/String8.h"

namespace Zan {

/// What reflective access must know of a value type: its registered name, its text and how to read that back.
/// Specialised for each type: `name`, `text(value)` and `parse(text)`, which yields nothing for a wrong text.
template <class T>
struct ValueTraits;

/// An object by counted reference, and whether the holder may change it. Null is an object too.
class ZAN_EXPORT ObjectRef {
 public:
  ObjectRef() = default;
  template <class T>
  ObjectRef(const Ptr<T>& object) : object_(object.get()), isConst_(std::is_const_v<T>) {}  // NOLINT: a view

  const PtrInterface* get() const { return object_.get(); }
  bool isConst() const { return isConst_; }
  explicit operator bool() const { return static_cast<bool>(object_); }

 private:
  Ptr<PtrInterface const> object_;
  bool isConst_ = false;
};

/// A value of any registered type, or an object, or nothing (what an operation without result returns).
class ZAN_EXPORT Value {
 public:
  Value() = default;
  Value(ObjectRef object)
      : typeName_("object"), value_(std::move(object)) {}  // NOLINT: every object is a value
  template <class T>
  static Value of(T value) {
    Value v;
    v.typeName_ = ValueTraits<T>::name;
    v.text_ = [](const std::any& a) { return ValueTraits<T>::text(std::any_cast<const T&>(a)); };
    v.value_ = std::move(value);
    return v;
  }

  bool isNothing() const { return typeName_.empty(); }
  bool isObject() const { return value_.type() == typeid(ObjectRef); }
  /// Null unless this is an object.
  ObjectRef object() const { return isObject() ? std::any_cast<ObjectRef>(value_) : ObjectRef(); }
  /// The type's registered name; of an object, that of its class.
  std::string_view typeName() const;
  /// For people; of an object, its full name where it has one.
  std::string text() const;

  /// The value as a T. A text is read as one. Throws a type exception for anything else.
  template <class T>
  T as() const {
    if (const T* value = std::any_cast<T>(&value_)) return *value;
    if (const std::string* text = std::any_cast<std::string>(&value_)) {
      if (std::optional<T> parsed = ValueTraits<T>::parse(*text)) return *std::move(parsed);
      throw TypeException(ValueTraits<T>::name, '"' + *text + '"');
    }
    throw TypeException(ValueTraits<T>::name, isNothing() ? "nothing" : typeName());
  }
  /// The object as a T, named `expected`. Throws a type exception for another class, and for a const object
  /// where T is not const.
  template <class T>
  Ptr<T> objectAs(std::string_view expected) const {
    const ObjectRef ref = object();
    if (!isObject()) throw TypeException(expected, typeName());
    if (ref && ref.isConst() && !std::is_const_v<T>)
      throw TypeException(expected, "const " + std::string(typeName()));
    const auto* object = dynamic_cast<const T*>(ref.get());
    if (ref && !object) throw TypeException(expected, typeName());
    return Ptr<T>(const_cast<T*>(object));
  }

 private:
  std::string_view typeName_;
  std::string (*text_)(const std::any&) = nullptr;
  std::any value_;
};

/// What is read through `owner`: an object that is reached through a const handle is const too.
inline Value asConstAs(const ObjectRef& owner, Value value) {
  if (!owner.isConst() || !value.isObject()) return value;
  return ObjectRef(Ptr<PtrInterface const>(value.object().get()));
}

/// A text that stands for a value of the type that is wanted.
template <>
struct ValueTraits<std::string> {
  static constexpr std::string_view name = "text";
  static std::string text(const std::string& v) { return v; }
  static std::optional<std::string> parse(std::string_view t) { return std::string(t); }
};

template <>
struct ValueTraits<bool> {
  static constexpr std::string_view name = "bool";
  static std::string text(bool v) { return v ? "true" : "false"; }
  static std::optional<bool> parse(std::string_view t) {
    if (t == "true") return true;
    if (t == "false") return false;
    return std::nullopt;
  }
};

/// Decimal, within the range of the type.
template <class T>
struct IntegerTraits {
  static std::string text(T v) { return std::to_string(v); }
  static std::optional<T> parse(std::string_view t) {
    T v{};
    const auto [end, error] = std::from_chars(t.data(), t.data() + t.size(), v);
    return error == std::errc() && end == t.data() + t.size() ? std::optional<T>(v) : std::nullopt;
  }
};
template <>
struct ValueTraits<U8> : IntegerTraits<U8> {
  static constexpr std::string_view name = "U8";
};
template <>
struct ValueTraits<U32> : IntegerTraits<U32> {
  static constexpr std::string_view name = "U32";
};
template <>
struct ValueTraits<U64> : IntegerTraits<U64> {
  static constexpr std::string_view name = "U64";
};
template <>
struct ValueTraits<S32> : IntegerTraits<S32> {
  static constexpr std::string_view name = "S32";
};
template <>
struct ValueTraits<double> {
  static constexpr std::string_view name = "double";
  static std::string text(double v) { return std::to_string(v); }
  static std::optional<double> parse(std::string_view t) {
    double v{};
    const auto [end, error] = std::from_chars(t.data(), t.data() + t.size(), v);
    return error == std::errc() && end == t.data() + t.size() ? std::optional<double>(v) : std::nullopt;
  }
};
/// Of a type with a text form and a `parse` that yields nothing for a wrong text.
template <class T>
struct ParsedTraits {
  static std::string text(const T& v) { return v.stringValue(); }
  static std::optional<T> parse(std::string_view t) { return T::parse(t); }
};
/// Of a type whose constructor from a text throws a range exception for a wrong one.
template <class T>
struct ConstructedTraits {
  static std::string text(const T& v) { return v.stringValue(); }
  static std::optional<T> parse(std::string_view t) {
    const Expect expected(ExceptionId::range);
    try {
      return T(t);
    } catch (const RangeException&) {
      return std::nullopt;
    }
  }
};

template <>
struct ValueTraits<Name> {
  static constexpr std::string_view name = "Zan::Name";
  static std::string text(const Name& v) { return v.stringValue(); }
  static std::optional<Name> parse(std::string_view t) { return Name(t); }
};

}  // namespace Zan
