#pragma once

#include <compare>
#include <iosfwd>
#include <string>

#include "Lumo/AddressFamily.h"
#include "Lumo/Ip6Addr.h"
#include "Lumo/IpAddr.h"
#include "Zan/Export.h"

namespace Lumo {

/// An address of either family. The default value has family unknown and prints as nothing.
class ZAN_EXPORT IpGenAddr {
 public:
  constexpr IpGenAddr() = default;
  explicit IpGenAddr(IpAddr address)
      : bytes_(Ip6Addr::fromHost(U64{address.host()} << 32, 0)), af_(AddressFamily::ipv4) {}
  explicit IpGenAddr(const Ip6Addr& address) : bytes_(address), af_(AddressFamily::ipv6) {}
  /// Reads text of either family; empty text gives the empty address; other text throws a range exception.
  explicit IpGenAddr(std::string_view text);

  AddressFamily af() const { return af_; }
  /// The first four bytes as an IPv4 address: 0.0.0.0 for the empty address.
  IpAddr v4Addr() const { return IpAddr::fromNetwork(swapNetwork32(static_cast<U32>(bytes_.high() >> 32))); }
  const Ip6Addr& v6Addr() const { return bytes_; }
  U64 hash() const { return Zan::mix(bytes_.high() ^ static_cast<U64>(af_), bytes_.low()); }
  std::string stringValue() const;

  friend bool operator==(const IpGenAddr&, const IpGenAddr&) = default;
  friend std::strong_ordering operator<=>(const IpGenAddr& a, const IpGenAddr& b) {
    if (auto c = a.af_ <=> b.af_; c != 0) return c;
    return a.bytes_ <=> b.bytes_;
  }

 private:
  Ip6Addr bytes_;
  AddressFamily af_ = AddressFamily::unknown;
};

ZAN_EXPORT std::ostream& operator<<(std::ostream& out, const IpGenAddr& address);

}  // namespace Lumo
