#include "Quarn/Fib/ForwardingStatus.h"
#include "Quarn/Fib/RouteStatus.h"
#include "Zan/ZanType.h"

namespace Quarn::Fib {

RouteStatus::~RouteStatus() = default;
ForwardingStatus::~ForwardingStatus() = default;

void RouteTraits::encode(const Route& route, U64* words) {
  words[0] = U64{route.prefix.address().host()} << 32 | U64{route.prefix.length()} << 16 |
             static_cast<U64>(route.routeType) << 8 | route.preference;
  words[1] = route.fecId;
}

std::optional<Route> RouteTraits::decode(const U64* words, std::string& reason) {
  const auto address = Lumo::IpAddr::fromHost(static_cast<U32>(words[0] >> 32));
  const U32 length = words[0] >> 16 & 0xFFFF;
  if (length > Lumo::Prefix::maxLength) {
    reason = "prefix length " + std::to_string(length);
    return std::nullopt;
  }
  const Lumo::Prefix prefix(address, length);
  if (prefix.address() != address) {
    reason = "host bits in prefix " + address.stringValue() + '/' + std::to_string(length);
    return std::nullopt;
  }
  return Route{prefix, static_cast<Routing::Fib::RouteType>(words[0] >> 8 & 0xFF),
               static_cast<U8>(words[0] & 0xFF), words[1]};
}

void FecTraits::encode(const Fec& fec, U64* words) {
  words[0] = fec.fecId;
  words[1] = fec.viaCount;
  for (U32 i = 0; i < Fec::maxVias; ++i) {
    words[i + 2] = U64{fec.via[i].hop.host()} << 32 | fec.via[i].intf.value();
  }
}

std::optional<Fec> FecTraits::decode(const U64* words, std::string&) {
  Fec fec;
  fec.fecId = words[0];
  fec.viaCount = static_cast<U32>(words[1]);
  for (U32 i = 0; i < Fec::maxVias; ++i) {
    fec.via[i] = {Lumo::IpAddr::fromHost(static_cast<U32>(words[i + 2] >> 32)),
                  Lumo::IntfId(static_cast<U32>(words[i + 2]))};
  }
  return fec;
}

const Zan::ZanType* RouteStatus::fwkType() const {
  static const Zan::ZanType type("Quarn::Fib::RouteStatus", PtrInterface::fwkType());
  return &type;
}

const Zan::ZanType* ForwardingStatus::fwkType() const {
  static const Zan::ZanType type("Quarn::Fib::ForwardingStatus", PtrInterface::fwkType());
  return &type;
}

}  // namespace Quarn::Fib
