#include "CommonRows.h"
#include "Pim/MribTrieBuilder/MribTrieBuilderSm.h"
#include "Tables.h"
#include "ValueTypes.h"

namespace glue {

namespace {

using Sm = Routing::Multicast::Rib::MribTrieBuilderSm;
using ZanRoute = Sm::ZanRoute;
using Flags = Zan::ZanAttrIntrospectionFlags;
using Zan::AttributeRow;

constexpr AttributeRow trieBuilderRows[] = {
    {.id = 130,
     .name = "status",
     .type = "Routing::Multicast::Rib::Status",
     .flags = Flags::constInput,
     .get = Zan::get<&Sm::status>},
    {.id = 131,
     .name = "mribRouteStatus",
     .type = "Routing::Multicast::Shadow::Status",
     .flags = Flags::readOnly,
     .get = Zan::get<&Sm::mribRouteStatus>},
    activityRow,
    {.id = 132,
     .name = "initialize",
     .type = "bool",
     .get = Zan::get<&Sm::initialize>,
     .set = Zan::set<&Sm::initializeIs>},
    handlerRow<&Sm::handleInitialize>(133, "handleInitialize"),
    {.id = 134,
     .name = "trie",
     .type = "Routing::TrieGen",
     .get = Zan::get<&Sm::trie>,
     .set = Zan::set<&Sm::trieIs>},
    handlerRow<&Sm::handleRoute>(135, "handleRoute"),
    {.id = 136,
     .name = "route",
     .type = "Routing::Multicast::Rib::MribTrieBuilderSm::ZanRoute",
     .flags = Flags::collection | Flags::reactor,
     .index = {"prefix", "Lumo::Prefix"},
     .at = Zan::at<&Sm::route>,
     .count = Zan::count<&Sm::routeCount>,
     .iterate = Zan::iterate<&Sm::routeIterator>,
     .erase = Zan::erase<&Sm::routeDel>,
     .eraseAll = Zan::eraseAll<&Sm::routeDelAll>},
    {.id = 137,
     .name = "trieUpdates",
     .type = "U32",
     .get = Zan::get<&Sm::trieUpdates>,
     .set = Zan::set<&Sm::trieUpdatesIs>},
    {.id = 138,
     .name = "deletedPreference",
     .type = "U8",
     .get = Zan::get<&Sm::deletedPreference>,
     .set = Zan::set<&Sm::deletedPreferenceIs>},
    {.id = 139,
     .name = "deletedPreferenceUnknown",
     .type = "U8",
     .flags = Flags::readOnly,
     .get = Zan::getConstant<Sm::deletedPreferenceUnknown>},
    activeRow,
    zombieRow<Sm>(140),
};
static_assert(Zan::covers(trieBuilderRows, 130, 140));

constexpr AttributeRow trieBuilderRouteRows[] = {
    {.id = 130,
     .name = "notifier",
     .type = "Routing::Multicast::Rib::Route",
     .flags = Flags::constInput,
     .get = Zan::get<&ZanRoute::notifierPtr>},
    handlerRow<&ZanRoute::handlePreference>(131, "handlePreference"),
    handlerRow<&ZanRoute::handleDel>(132, "handleDel"),
    zombieRow<ZanRoute>(133),
};
static_assert(Zan::covers(trieBuilderRouteRows, 130, 133));

}  // namespace

constinit const Zan::TypeTable trieBuilderTable{"Routing::Multicast::Rib::MribTrieBuilderSm",
                                                "Zan::PtrInterface", trieBuilderRows};
constinit const Zan::TypeTable trieBuilderRouteTable{"Routing::Multicast::Rib::MribTrieBuilderSm::ZanRoute",
                                                     "Zan::PtrInterface", trieBuilderRouteRows};

}  // namespace glue
