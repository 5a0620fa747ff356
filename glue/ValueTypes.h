#pragma once

#include "Pim/MribSm/ConfigReactors.h"
#include "Routing/Fib/Via.h"
#include "Routing/Multicast/Rib/Rpf.h"
#include "Zan/CollectionIterator.h"

// How the network value types read and write as texts.

namespace Zan {

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
struct ValueTraits<Lumo::IpAddr> : ParsedTraits<Lumo::IpAddr> {
  static constexpr std::string_view name = "Lumo::IpAddr";
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

template <>
struct ValueTraits<Routing::Fib::RouteType> {
  static constexpr std::string_view name = "Routing::Fib::RouteType";
  static std::string text(Routing::Fib::RouteType v) { return Routing::Fib::name(v); }
  static std::optional<Routing::Fib::RouteType> parse(std::string_view t) {
    for (U8 n = 0; n <= static_cast<U8>(Routing::Fib::RouteType::connected); ++n) {
      if (t == Routing::Fib::name(static_cast<Routing::Fib::RouteType>(n))) return Routing::Fib::RouteType(n);
    }
    return std::nullopt;
  }
};

/// "intf 7" or "addr 10.0.0.1", as it prints.
template <>
struct ValueTraits<Routing::Multicast::Rib::Rpf> {
  using Rpf = Routing::Multicast::Rib::Rpf;
  static constexpr std::string_view name = "Routing::Multicast::Rib::Rpf";
  static std::string text(const Rpf& v) { return v.stringValue(); }
  static std::optional<Rpf> parse(std::string_view t) {
    if (t.starts_with("intf ")) {
      const auto id = ValueTraits<Lumo::IntfId>::parse(t.substr(5));
      return id ? std::optional(Rpf::ofIntf(*id)) : std::nullopt;
    }
    if (!t.starts_with("addr ") || t.size() == 5) return std::nullopt;
    const auto address = ValueTraits<Lumo::IpGenAddr>::parse(t.substr(5));
    return address ? std::optional(Rpf::ofAddr(*address)) : std::nullopt;
  }
};

/// A via names an interface object, which a text can't.
template <class Family>
struct ValueTraits<Routing::Fib::ViaOf<Family>> {
  using Via = Routing::Fib::ViaOf<Family>;
  static constexpr std::string_view name = Family::viaName;
  static std::string text(const Via& v) { return v.stringValue(); }
  static std::optional<Via> parse(std::string_view) { return std::nullopt; }
};

template <>
struct KeyValue<Routing::Multicast::Rib::PrefixSet::Ptr> {
  static Value of(const Routing::Multicast::Rib::PrefixSet::Ptr& set) { return Value::of(set->lPrefix()); }
};
template <>
struct KeyValue<Routing::Multicast::Rib::MribSm::ZanMribConfigPrefix::PrefKey> {
  static Value of(Routing::Multicast::Rib::MribSm::ZanMribConfigPrefix::PrefKey key) {
    return Value::of(key.preference);
  }
};

}  // namespace Zan
