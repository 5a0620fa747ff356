#pragma once

#include "Pim/MribSm/MribSm.h"

namespace Routing::Multicast::Rib {

/// Keeps a resolver and its engine while an operation is under way: handlers of what it writes may release
/// both, which then go when it is done.
class RouteResolverSm::Kept {
 public:
  explicit Kept(RouteResolverSm& resolver) : resolver_(&resolver), mribSm_(resolver.mribSm()) {}

 private:
  Zan::Ptr<RouteResolverSm> resolver_;
  Zan::Ptr<MribSm> mribSm_;
};

}  // namespace Routing::Multicast::Rib
