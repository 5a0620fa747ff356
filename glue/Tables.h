#pragma once

#include "Zan/TypeTable.h"

// The table of every type that tells of itself: glue/<Type>Type.cc has each.

namespace glue {

extern const Zan::TypeTable interfaceInfoTable;
extern const Zan::TypeTable routeResolverTable;
extern const Zan::TypeTable mribForPrefixTable;
extern const Zan::TypeTable mribSmTable;
extern const Zan::TypeTable mribConfigPrefixTable;
extern const Zan::TypeTable mribConfigPrefTable;
extern const Zan::TypeTable trieBuilderTable;
extern const Zan::TypeTable trieBuilderRouteTable;
extern const Zan::TypeTable trieBuilder6Table;
extern const Zan::TypeTable trieBuilder6RouteTable;

extern const Zan::TypeTable configTable;
extern const Zan::TypeTable routeKeyPrefixTable;
extern const Zan::TypeTable routeKeyPreferenceTable;
extern const Zan::TypeTable routeTable;
extern const Zan::TypeTable route6Table;
extern const Zan::TypeTable statusTable;
extern const Zan::TypeTable status6Table;
extern const Zan::TypeTable prefixSetTable;
extern const Zan::TypeTable mribShadowTable;
extern const Zan::TypeTable mribShadow6Table;
extern const Zan::TypeTable uribShadowTable;
extern const Zan::TypeTable trieTable;
extern const Zan::TypeTable routeStatusTable;
extern const Zan::TypeTable forwardingStatusTable;
extern const Zan::TypeTable ipStatusTable;
extern const Zan::TypeTable intfAddrTable;
extern const Zan::TypeTable intfStatusDirTable;
extern const Zan::TypeTable intfStatusTable;
extern const Zan::TypeTable intfConfigDirTable;

}  // namespace glue
