#pragma once

#include <charconv>
#include <concepts>
#include <string>
#include <string_view>

#include "Zan/Export.h"
#include "Zan/Types.h"

namespace Zan {

/// Builds the text of one message. Small on purpose: a stream at every trace site would double the code.
class ZAN_EXPORT Text {
 public:
  Text& operator<<(std::string_view s) {
    text_.append(s);
    return *this;
  }
  /// Null reads as the empty references do.
  Text& operator<<(const char* s) { return *this << std::string_view(s ? s : "NULL"); }
  /// Integers in decimal; a U8 too (write `RawByte` for the byte itself).
  template <std::integral T>
  Text& operator<<(T value) {
    char buffer[24];
    if constexpr (std::is_signed_v<T>) {
      return *this << std::string_view(
                 buffer, std::to_chars(buffer, buffer + sizeof buffer, static_cast<S64>(value)).ptr);
    } else {
      return *this << std::string_view(
                 buffer, std::to_chars(buffer, buffer + sizeof buffer, static_cast<U64>(value)).ptr);
    }
  }
  Text& operator<<(char) = delete;
  Text& operator<<(bool) = delete;
  /// Anything that knows its own text.
  template <class T>
  requires requires(const T& v) {
    { v.stringValue() } -> std::convertible_to<std::string_view>;
  }
  Text& operator<<(const T& value) { return *this << std::string_view(value.stringValue()); }

  struct RawByte {
    U8 value;
  };
  /// One byte as it is, which may be zero.
  Text& operator<<(RawByte b) {
    text_.push_back(static_cast<char>(b.value));
    return *this;
  }

  std::string_view view() const { return text_; }

 private:
  std::string text_;
};

}  // namespace Zan
