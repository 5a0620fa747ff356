#pragma once

#include "Lumo/ValueTraits.h"
#include "Routing/Fib/RouteType.h"
#include "Routing/Fib/Via.h"
#include "Routing/Multicast/Rib/Rpf.h"

// The values of routes and of their configuration as a `Zan::Value`, and how they read and write as texts.

namespace Zan {

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

}  // namespace Zan
