#pragma once

#include "Lumo/IntfId.h"
#include "Lumo/IpGenAddr.h"
#include "Lumo/IpGenPrefix.h"
#include "Zan/Value.h"

// Addresses, prefixes and interface identifiers as a `Zan::Value`, and how they read and write as texts.

namespace Zan {

template <>
struct ValueTraits<Lumo::IpAddr> : ParsedTraits<Lumo::IpAddr> {
  static constexpr std::string_view name = "Lumo::IpAddr";
};
template <>
struct ValueTraits<Lumo::Ip6Addr> : ParsedTraits<Lumo::Ip6Addr> {
  static constexpr std::string_view name = "Lumo::Ip6Addr";
};
template <>
struct ValueTraits<Lumo::Prefix> : ParsedTraits<Lumo::Prefix> {
  static constexpr std::string_view name = "Lumo::Prefix";
};
template <>
struct ValueTraits<Lumo::Ip6Prefix> : ParsedTraits<Lumo::Ip6Prefix> {
  static constexpr std::string_view name = "Lumo::Ip6Prefix";
};
template <>
struct ValueTraits<Lumo::IpGenPrefix> : ConstructedTraits<Lumo::IpGenPrefix> {
  static constexpr std::string_view name = "Lumo::IpGenPrefix";
};
template <>
struct ValueTraits<Lumo::IpGenAddr> : ConstructedTraits<Lumo::IpGenAddr> {
  static constexpr std::string_view name = "Lumo::IpGenAddr";
};

template <>
struct ValueTraits<Lumo::IntfId> {
  static constexpr std::string_view name = "Lumo::IntfId";
  static std::string text(Lumo::IntfId v) { return v.stringValue(); }
  static std::optional<Lumo::IntfId> parse(std::string_view t) {
    const auto number = ValueTraits<U32>::parse(t);
    return number ? std::optional(Lumo::IntfId(*number)) : std::nullopt;
  }
};

template <>
struct ValueTraits<Lumo::AddressFamily> {
  static constexpr std::string_view name = "Lumo::AddressFamily";
  static std::string text(Lumo::AddressFamily v) {
    return v == Lumo::AddressFamily::ipv4 ? "ipv4" : v == Lumo::AddressFamily::ipv6 ? "ipv6" : "unknown";
  }
  static std::optional<Lumo::AddressFamily> parse(std::string_view t) {
    for (const auto family :
         {Lumo::AddressFamily::unknown, Lumo::AddressFamily::ipv4, Lumo::AddressFamily::ipv6}) {
      if (t == text(family)) return family;
    }
    return std::nullopt;
  }
};

}  // namespace Zan
