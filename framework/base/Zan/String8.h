#pragma once

#include <algorithm>
#include <ostream>
#include <string>
#include <string_view>

#include "Zan/Export.h"
#include "Zan/Types.h"

namespace Zan {

/// An immutable string of bytes; copies share them. May hold any byte, zero included. Eight bytes large;
/// the empty string holds no memory.
class ZAN_EXPORT String8 {
 public:
  constexpr String8() = default;
  String8(std::string_view bytes);  // NOLINT: every text is one
  /// Throws a range exception for null.
  String8(const char* bytes) : String8(std::string_view(bytes ? bytes : refuseNull())) {}  // NOLINT
  String8(const std::string& bytes) : String8(std::string_view(bytes)) {}                  // NOLINT
  String8(const String8& other) noexcept;
  String8(String8&& other) noexcept : rep_(other.rep_) { other.rep_ = nullptr; }
  String8& operator=(String8 other) noexcept {
    std::swap(rep_, other.rep_);
    return *this;
  }
  ~String8();

  /// The bytes, followed by a zero; valid as long as any copy of the string.
  const char* charPtr() const { return view().data(); }
  U32 size() const { return static_cast<U32>(view().size()); }
  bool empty() const { return rep_ == nullptr; }
  std::string_view view() const;
  std::string stringValue() const { return std::string(view()); }

  friend bool operator==(const String8& a, const String8& b) { return a.view() == b.view(); }
  friend auto operator<=>(const String8& a, const String8& b) { return a.view() <=> b.view(); }
  friend std::ostream& operator<<(std::ostream& out, const String8& s) { return out << s.view(); }

 private:
  [[noreturn]] static const char* refuseNull();

  struct Rep;
  Rep* rep_ = nullptr;
};

/// A text that a program spells out, as a template argument.
template <std::size_t n>
struct Literal {
  constexpr Literal(const char (&text)[n]) { std::copy_n(text, n, bytes); }  // NOLINT: spelled "text"
  char bytes[n];
};

/// The one String8 of a text that the program spells out: no allocation each time.
template <Literal text>
const String8& literal() {
  static const String8 string(std::string_view(text.bytes, sizeof text.bytes - 1));
  return string;
}

/// The name of an entity.
class ZAN_EXPORT Name : public String8 {
 public:
  using String8::String8;
};

}  // namespace Zan
