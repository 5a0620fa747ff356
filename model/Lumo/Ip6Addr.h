#pragma once

#include <array>
#include <compare>
#include <cstring>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include "Lumo/IpAddr.h"
#include "Zan/Export.h"

namespace Lumo {

/// An IPv6 address: 16 bytes in network order, ordered bytewise.
class ZAN_EXPORT Ip6Addr {
 public:
  using Bytes = std::array<U8, 16>;

  constexpr Ip6Addr() = default;
  constexpr explicit Ip6Addr(const Bytes& bytes) : bytes_(bytes) {}
  /// From the first and the last eight bytes as numbers in host byte order.
  static Ip6Addr fromHost(U64 high, U64 low) {
    const U64 words[] = {swapNetwork64(high), swapNetwork64(low)};
    Ip6Addr address;
    std::memcpy(address.bytes_.data(), words, sizeof words);
    return address;
  }
  /// Reads RFC 4291 text; throws a range exception that quotes the text when it is not an address.
  explicit Ip6Addr(std::string_view text);
  static std::optional<Ip6Addr> parse(std::string_view text);

  constexpr const Bytes& bytes() const { return bytes_; }
  /// The first and last eight bytes as numbers in host byte order.
  U64 high() const { return swapNetwork64(Zan::load64(bytes_.data())); }
  U64 low() const { return swapNetwork64(Zan::load64(bytes_.data() + 8)); }
  U64 hash() const { return Zan::mix(Zan::load64(bytes_.data()), Zan::load64(bytes_.data() + 8)); }
  /// RFC 5952 text.
  std::string stringValue() const;

  friend bool operator==(const Ip6Addr& a, const Ip6Addr& b) {
    const auto *x = a.bytes_.data(), *y = b.bytes_.data();
    return Zan::load64(x) == Zan::load64(y) && Zan::load64(x + 8) == Zan::load64(y + 8);
  }
  friend std::strong_ordering operator<=>(const Ip6Addr& a, const Ip6Addr& b) {
    if (auto c = a.high() <=> b.high(); c != 0) return c;
    return a.low() <=> b.low();
  }

 private:
  Bytes bytes_{};
};

ZAN_EXPORT std::ostream& operator<<(std::ostream& out, const Ip6Addr& address);

}  // namespace Lumo
