#pragma once

#include <compare>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include "Lumo/IpAddr.h"
#include "Zan/Export.h"

namespace Lumo {

/// An IPv4 prefix: address and length 0 to 32. Host bits are always zero: the constructor clears them.
/// The default value is 0.0.0.0/0.
class ZAN_EXPORT Prefix {
 public:
  static constexpr U8 maxLength = 32;

  constexpr Prefix() = default;
  /// Throws a range exception for a length over 32.
  constexpr Prefix(IpAddr address, U32 length)
      : address_(IpAddr::fromHost(address.host() & mask(length))), length_(static_cast<U8>(length)) {
    if (length > maxLength) refuseLength();
  }
  /// Reads "A.B.C.D/L"; throws a range exception that quotes the text and says what is wrong with it,
  /// host bits that are not zero included.
  explicit Prefix(std::string_view text);
  static std::optional<Prefix> parse(std::string_view text);

  constexpr IpAddr address() const { return address_; }
  constexpr U8 length() const { return length_; }
  bool contains(IpAddr a) const { return ((a.host() ^ address_.host()) & mask(length_)) == 0; }
  U64 hash() const { return Zan::mix(address_.network(), length_); }
  std::string stringValue() const;

  /// The netmask of a length, in host byte order.
  static constexpr U32 mask(U32 length) { return static_cast<U32>(~U64{0xFFFFFFFF} >> (length & 63)); }

  friend constexpr bool operator==(Prefix a, Prefix b) = default;
  friend constexpr std::strong_ordering operator<=>(Prefix a, Prefix b) {
    const U64 x = U64{a.address_.host()} << 8 | a.length_;
    const U64 y = U64{b.address_.host()} << 8 | b.length_;
    return x <=> y;
  }

 private:
  [[noreturn]] static void refuseLength();

  IpAddr address_;
  U8 length_ = 0;
};

ZAN_EXPORT std::ostream& operator<<(std::ostream& out, Prefix prefix);

}  // namespace Lumo
