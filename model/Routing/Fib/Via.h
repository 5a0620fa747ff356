#pragma once

#include <ostream>

#include "Interface/IntfStatus.h"
#include "Lumo/ViaIndex.h"
#include "Routing/Family.h"

namespace Routing::Fib {

/// One forwarding next hop: its address and the interface that leads to it, which may be unknown (null).
/// Two vias are equal when hop and interface object are the same.
template <class Family>
struct ViaOf {
  typename Family::Addr hop;
  Zan::Ptr<Interface::IntfStatus const> intfStatus;

  friend bool operator==(const ViaOf& a, const ViaOf& b) = default;
  /// By interface identifier, then by hop. *Intended*: a via without interface is equivalent to every via,
  /// so this is no strict weak order: never sort or key by it.
  friend bool operator<(const ViaOf& a, const ViaOf& b) {
    if (!a.intfStatus || !b.intfStatus) return false;
    if (a.intfStatus->intfId() != b.intfStatus->intfId()) {
      return a.intfStatus->intfId() < b.intfStatus->intfId();
    }
    return a.hop < b.hop;
  }
  U64 hash() const { return Zan::mix(hop.hash(), reinterpret_cast<std::uintptr_t>(intfStatus.get())); }
  /// "10.0.0.1 on eth0", or the hop alone.
  std::string stringValue() const {
    std::string text = hop.stringValue();
    if (intfStatus) (text += " on ") += intfStatus->name().view();
    return text;
  }
  friend std::ostream& operator<<(std::ostream& out, const ViaOf& via) { return out << via.stringValue(); }
};

using Via = ViaOf<Family4>;

using Lumo::ViaIndex;

}  // namespace Routing::Fib
