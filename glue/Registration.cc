#include "Factories.h"
#include "Tables.h"
#include "Zan/Introspection.h"

// Registers every type when the program is loaded. One place, so that the order is the one written here.

namespace glue {

namespace {

/// The names of the configuration side in the order of their first use.
struct Names {
  Names() {
    for (const char* name : {"ipStatus",
                             "status",
                             "mribStatus",
                             "allIntfStatusDir",
                             "handleInitialize",
                             "defaultPrefix",
                             "config",
                             "uribStatus",
                             "mribSm",
                             "initialized",
                             "handleChangedRoute",
                             "mribForPrefix",
                             "lPrefix",
                             "doAddOrUpdateRoute",
                             "rpf",
                             "p",
                             "pref",
                             "doDelRpf",
                             "doDelRoute",
                             "doAddWatchPrefix",
                             "doDelWatchPrefix",
                             "prefix",
                             "paddr",
                             "doMaybeRefreshRoutes",
                             "changedPrefix",
                             "add",
                             "doRecursiveDelete",
                             "delRoute",
                             "pset",
                             "doRecursiveUpdate",
                             "intfInfo",
                             "uribShadowStatus",
                             "mribConfig",
                             "initialize",
                             "intfStatus",
                             "intfConfig",
                             "mribConfigPrefix",
                             "routeResolver",
                             "mribShadow",
                             "name",
                             "trieBuilder",
                             "mribRouteStatus"}) {
      Zan::Introspection::instance().useName(name);
    }
  }
};

const Names names;
const Zan::TypeRegistration engine({"Routing", "Multicast", "Rib"},
                                   {&interfaceInfoTable, &routeResolverTable, &mribForPrefixTable,
                                    &mribSmTable, &mribConfigPrefixTable, &mribConfigPrefTable,
                                    &trieBuilderTable, &trieBuilderRouteTable, &configTable,
                                    &routeKeyPrefixTable, &routeKeyPreferenceTable, &routeTable, &statusTable,
                                    &prefixSetTable});
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

// Handles that are looked up once, when everything is registered, and released when the program ends.
const Zan::AttributeHandle deletedPreference("Routing::Multicast::Rib::MribTrieBuilderSm",
                                             "deletedPreference");
const Zan::AttributeHandle deletedPreferenceUnknown("Routing::Multicast::Rib::MribTrieBuilderSm",
                                                    "deletedPreferenceUnknown");

}  // namespace

}  // namespace glue

/// Whoever links the static library asks for this name, since nothing else calls for what registers itself
/// here.
extern "C" const bool mrib_registration;
const bool mrib_registration = true;
