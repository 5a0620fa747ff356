#include "Factories.h"
#include "Tables.h"
#include "Zan/Introspection.h"

// Registers every type when the program is loaded. One place, so that the order is the one written here.

namespace glue {

namespace {

// The state machines refer to each other, and tools list names in the order of their first use: what all of
// the configuration side is given comes first, then the resolver but for what it shares with the engine that
// owns it, then the engine from its inputs on.
const Zan::TypeRegistration engine(
    {"Routing", "Multicast", "Rib"},
    {&interfaceInfoTable, &routeResolverTable, &mribForPrefixTable, &mribSmTable, &mribConfigPrefixTable,
     &mribConfigPrefTable, &trieBuilderTable, &trieBuilderRouteTable, &configTable, &routeKeyPrefixTable,
     &routeKeyPreferenceTable, &routeTable, &statusTable, &prefixSetTable},
    {{&interfaceInfoTable, {"ipStatus", "status"}},
     {&mribSmTable, {"mribStatus", "allIntfStatusDir", "handleInitialize", "defaultPrefix"}},
     {&interfaceInfoTable},
     {&routeResolverTable, {}, {"intfStatus", "zan_TrieIn"}},
     {&mribSmTable, {"intfInfo", "uribShadowStatus", "mribConfig"}},
     {&mribSmTable}});
const Zan::TypeRegistration engine6({"Routing6", "Multicast", "Rib"},
                                    {&trieBuilder6Table, &trieBuilder6RouteTable, &route6Table,
                                     &status6Table});
const Zan::TypeRegistration shadow({"Routing", "Multicast", "Shadow"}, {&mribShadowTable});
const Zan::TypeRegistration shadow6({"Routing6", "Multicast", "Shadow"}, {&mribShadow6Table});
const Zan::TypeRegistration unicast({"Routing"}, {&uribShadowTable, &trieTable});
const Zan::TypeRegistration tables({"Quarn", "Fib"}, {&routeStatusTable, &forwardingStatusTable});
const Zan::TypeRegistration ip({"Ip"}, {&ipStatusTable, &intfAddrTable});
const Zan::TypeRegistration interfaces({"Interface"},
                                       {&intfStatusDirTable, &intfStatusTable, &intfConfigDirTable});

const struct Factories {
  Factories() {
    for (const Zan::FactoryRow& row : factories()) Zan::Introspection::instance().registerFactory(row);
  }
} registeredFactories;

}  // namespace

}  // namespace glue

/// Whoever links the static library asks for this name, since nothing else calls for what registers itself
/// here.
extern "C" const bool mrib_registration;
const bool mrib_registration = true;
