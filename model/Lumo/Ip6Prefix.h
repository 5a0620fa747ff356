#pragma once

#include <compare>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include "Lumo/Ip6Addr.h"
#include "Zan/Export.h"

namespace Lumo {

/// An IPv6 prefix: address and length 0 to 128. Host bits are always zero: the constructor clears them.
/// The default value is ::/0.
class ZAN_EXPORT Ip6Prefix {
 public:
  static constexpr U8 maxLength = 128;

  constexpr Ip6Prefix() = default;
  /// Throws a range exception for a length over 128.
  Ip6Prefix(const Ip6Addr& address, U32 length);
  /// Reads "ADDRESS/L"; throws as `Prefix` does.
  explicit Ip6Prefix(std::string_view text);
  static std::optional<Ip6Prefix> parse(std::string_view text);

  constexpr const Ip6Addr& address() const { return address_; }
  constexpr U8 length() const { return length_; }
  U64 hash() const { return Zan::mix(address_.high() ^ length_, address_.low()); }
  std::string stringValue() const;

  friend bool operator==(const Ip6Prefix&, const Ip6Prefix&) = default;
  friend std::strong_ordering operator<=>(const Ip6Prefix& a, const Ip6Prefix& b) {
    if (auto c = a.address_ <=> b.address_; c != 0) return c;
    return a.length_ <=> b.length_;
  }

 private:
  Ip6Addr address_;
  U8 length_ = 0;
};

ZAN_EXPORT std::ostream& operator<<(std::ostream& out, const Ip6Prefix& prefix);

}  // namespace Lumo
