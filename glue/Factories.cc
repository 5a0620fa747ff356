#include "Factories.h"

#include "Pim/MribTrieBuilder/MribTrieBuilderSm6.h"
#include "ValueTypes.h"

namespace glue {

namespace {

using namespace Routing::Multicast::Rib;
using Zan::ArgumentRow;

constexpr ArgumentRow mribSmArguments[] = {{"intfInfo", "Routing::Multicast::Rib::InterfaceInfo"},
                                           {"uribShadowStatus", "Routing::Shadow::Status"},
                                           {"mribConfig", "Routing::Multicast::Rib::Config"},
                                           {"mribStatus", "Routing::Multicast::Rib::Status"},
                                           {"allIntfStatusDir", "Interface::AllIntfStatusDir"}};
constexpr ArgumentRow resolverArguments[] = {{"uribStatus", "Routing::Shadow::Status"},
                                             {"mribStatus", "Routing::Multicast::Rib::Status"},
                                             {"intfStatus", "Interface::AllIntfStatusDir"},
                                             {"mribSm", "Routing::Multicast::Rib::MribSm"}};
constexpr ArgumentRow builderArguments[] = {{"status", "Routing::Multicast::Rib::Status"},
                                            {"mribRouteStatus", "Routing::Multicast::Shadow::Status"}};
constexpr ArgumentRow builder6Arguments[] = {{"status", "Routing6::Multicast::Rib::Status"},
                                             {"mribRouteStatus", "Routing6::Multicast::Shadow::Status"}};

constexpr Zan::FactoryRow rows[] = {
    {"Routing::Multicast::Rib::interfaceInfoFactory",
     "Routing::Multicast::Rib::InterfaceInfo",
     {},
     Zan::callFree<&interfaceInfoFactory>},
    {"Routing::Multicast::Rib::mribSmFactory", "Routing::Multicast::Rib::MribSm", mribSmArguments,
     Zan::callFree<&mribSmFactory>},
    {"Routing::Multicast::Rib::routeResolverSmFactory", "Routing::Multicast::Rib::RouteResolverSm",
     resolverArguments, Zan::callFree<&routeResolverSmFactory>},
    {"Routing::Multicast::Rib::mribTrieBuilderSmFactory", "Routing::Multicast::Rib::MribTrieBuilderSm",
     builderArguments, Zan::callFree<&Routing::Multicast::Rib::mribTrieBuilderSmFactory>},
    {"Routing6::Multicast::Rib::mribTrieBuilderSmFactory", "Routing6::Multicast::Rib::MribTrieBuilderSm",
     builder6Arguments, Zan::callFree<&Routing6::Multicast::Rib::mribTrieBuilderSmFactory>},
};

}  // namespace

std::span<const Zan::FactoryRow> factories() {
  return rows;
}

}  // namespace glue
