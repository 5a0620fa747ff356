#pragma once

#include <compare>
#include <iosfwd>
#include <string>

#include "Lumo/AddressFamily.h"
#include "Lumo/Ip6Prefix.h"
#include "Lumo/Prefix.h"
#include "Zan/Export.h"

namespace Lumo {

/// A prefix of either family: family, 16 address bytes (an IPv4 address in the first four, the others zero)
/// and length; equality is over all three. The default value has family unknown, stands for the absence of
/// a prefix and prints as nothing. Ordered by family, address bytewise, length.
class ZAN_EXPORT IpGenPrefix {
 public:
  constexpr IpGenPrefix() = default;
  IpGenPrefix(IpAddr address, U32 length) : IpGenPrefix(Prefix(address, length)) {}
  IpGenPrefix(Prefix prefix)  // NOLINT: the family-generic form of the same value
      : address_(Ip6Addr::fromHost(U64{prefix.address().host()} << 32, 0)),
        length_(prefix.length()),
        af_(AddressFamily::ipv4) {}
  IpGenPrefix(const Ip6Prefix& prefix)  // NOLINT: likewise
      : address_(prefix.address()), length_(prefix.length()), af_(AddressFamily::ipv6) {}
  /// Reads a prefix of either family; empty text gives the empty prefix; other text throws a range
  /// exception that quotes it and says what is wrong.
  explicit IpGenPrefix(std::string_view text);
  explicit IpGenPrefix(const char* text) : IpGenPrefix(std::string_view(text)) {}

  AddressFamily af() const { return af_; }
  U8 length() const { return length_; }
  /// The address bytes as two numbers in host byte order; an IPv4 address is in the top 32 bits of `high`.
  U64 high() const { return address_.high(); }
  U64 low() const { return address_.low(); }
  /// The IPv4 prefix of an IPv4 value; 0.0.0.0/0 for any other.
  Prefix v4Prefix() const {
    if (af_ != AddressFamily::ipv4) return {};
    return {IpAddr::fromHost(static_cast<U32>(high() >> 32)), length_};
  }
  /// The IPv6 prefix of an IPv6 value; ::/0 for any other.
  Ip6Prefix v6Prefix() const;
  bool empty() const { return af_ == AddressFamily::unknown; }
  U64 hash() const {
    return Zan::mix(Zan::load64(address_.bytes().data()) ^ tail(), Zan::load64(address_.bytes().data() + 8));
  }
  std::string stringValue() const;

  friend bool operator==(const IpGenPrefix& a, const IpGenPrefix& b) = default;
  /// Sets of prefixes live on this one: most neighbours differ in the first address bytes.
  friend bool operator<(const IpGenPrefix& a, const IpGenPrefix& b) {
    if (a.af_ != b.af_) return a.af_ < b.af_;
    if (a.high() != b.high()) return a.high() < b.high();
    if (a.low() != b.low()) return a.low() < b.low();
    return a.length_ < b.length_;
  }
  friend std::strong_ordering operator<=>(const IpGenPrefix& a, const IpGenPrefix& b) {
    if (auto c = a.af_ <=> b.af_; c != 0) return c;
    if (auto c = a.address_ <=> b.address_; c != 0) return c;
    return a.length_ <=> b.length_;
  }

 private:
  U64 tail() const { return static_cast<U64>(length_) << 8 | static_cast<U64>(af_); }

  Ip6Addr address_;
  U8 length_ = 0;
  AddressFamily af_ = AddressFamily::unknown;
};

ZAN_EXPORT std::ostream& operator<<(std::ostream& out, const IpGenPrefix& prefix);

}  // namespace Lumo
