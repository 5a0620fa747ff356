#include "CommonRows.h"
#include "Pim/MribTrieBuilder/MribTrieBuilderSm6.h"
#include "Tables.h"
#include "ValueTypes.h"

namespace glue {

namespace {

using Sm = Routing6::Multicast::Rib::MribTrieBuilderSm;
using ZanRoute = Sm::ZanRoute;
using Flags = Zan::ZanAttrIntrospectionFlags;
using Zan::ArgumentRow;
using Zan::AttributeRow;
using Zan::Form;

constexpr ArgumentRow handleRouteArguments2[] = {{"prefix", "Lumo::Ip6Prefix"}};
constexpr Form handleRouteForms[] = {
    {{}, Zan::call<static_cast<void (Sm::*)()>(&Sm::handleRoute)>},
    {handleRouteArguments2, Zan::call<static_cast<void (Sm::*)(const Lumo::Ip6Prefix&)>(&Sm::handleRoute)>}};
constexpr AttributeRow trieBuilder6Rows[] = {
    {.id = 130,
     .name = "status",
     .type = "Routing6::Multicast::Rib::Status",
     .flags = Flags::constInput,
     .get = Zan::get<&Sm::status>},
    {.id = 131,
     .name = "mribRouteStatus",
     .type = "Routing6::Multicast::Shadow::Status",
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
    {.id = 135, .name = "handleRoute", .type = "void", .flags = Flags::handler, .forms = handleRouteForms},
    {.id = 136,
     .name = "route",
     .type = "Routing6::Multicast::Rib::MribTrieBuilderSm::ZanRoute",
     .flags = Flags::collection | Flags::reactor,
     .index = {"prefix", "Lumo::Ip6Prefix"},
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
    activeRow,
    zombieRow<Sm>(138),
};
static_assert(Zan::covers(trieBuilder6Rows, 130, 138));

constexpr AttributeRow trieBuilder6RouteRows[] = {
    {.id = 130,
     .name = "notifier",
     .type = "Routing6::Multicast::Rib::Route",
     .flags = Flags::constInput,
     .get = Zan::get<&ZanRoute::notifierPtr>},
    zombieRow<ZanRoute>(131),
};
static_assert(Zan::covers(trieBuilder6RouteRows, 130, 131));

}  // namespace

constinit const Zan::TypeTable trieBuilder6Table{"Routing6::Multicast::Rib::MribTrieBuilderSm",
                                                 "Zan::PtrInterface", trieBuilder6Rows};
constinit const Zan::TypeTable trieBuilder6RouteTable{"Routing6::Multicast::Rib::MribTrieBuilderSm::ZanRoute",
                                                      "Zan::PtrInterface", trieBuilder6RouteRows};

}  // namespace glue
