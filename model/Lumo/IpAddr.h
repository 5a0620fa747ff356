#pragma once

#include <bit>
#include <compare>
#include <iosfwd>
#include <optional>
#include <string>
#include <string_view>

#include "Zan/Export.h"
#include "Zan/Hash.h"
#include "Zan/Types.h"

namespace Lumo {

/// The 32 bits of `v` between host and network byte order, either way.
constexpr U32 swapNetwork32(U32 v) {
  return std::endian::native == std::endian::little ? __builtin_bswap32(v) : v;
}
constexpr U64 swapNetwork64(U64 v) {
  return std::endian::native == std::endian::little ? __builtin_bswap64(v) : v;
}

/// An IPv4 address, held in network byte order; ordered by its bytes, first byte first.
class ZAN_EXPORT IpAddr {
 public:
  constexpr IpAddr() = default;
  /// From a number in host byte order: 0x0A000001 is 10.0.0.1.
  static constexpr IpAddr fromHost(U32 host) { return IpAddr(swapNetwork32(host), Raw{}); }
  /// From the 32 bits as they lie in a packet.
  static constexpr IpAddr fromNetwork(U32 network) { return IpAddr(network, Raw{}); }
  /// Reads dotted-quad text; throws a range exception that quotes the text when it is not an address.
  explicit IpAddr(std::string_view text);
  /// As the constructor, but yields nothing where that throws.
  static std::optional<IpAddr> parse(std::string_view text);

  constexpr U32 network() const { return network_; }
  constexpr U32 host() const { return swapNetwork32(network_); }
  U64 hash() const { return Zan::mix(network_, 0); }
  std::string stringValue() const;

  friend constexpr bool operator==(IpAddr a, IpAddr b) { return a.network_ == b.network_; }
  friend constexpr std::strong_ordering operator<=>(IpAddr a, IpAddr b) { return a.host() <=> b.host(); }

 private:
  struct Raw {};
  constexpr IpAddr(U32 network, Raw) : network_(network) {}

  U32 network_ = 0;
};

ZAN_EXPORT std::ostream& operator<<(std::ostream& out, IpAddr address);

}  // namespace Lumo
