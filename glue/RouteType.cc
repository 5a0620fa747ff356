#include "Routing/Multicast/Rib/Route.h"
#include "Tables.h"
#include "ValueTypes.h"
#include "Zan/IntrospectionReactor.h"

namespace glue {

namespace {

using Routing::Family4;
using Routing::Family6;
template <class Family>
using RouteOf = Routing::Multicast::RouteOf<Family>;
using Flags = Zan::ZanAttrIntrospectionFlags;
using Zan::AttributeRow;

template <class Family, class R = RouteOf<Family>>
constexpr AttributeRow routeRows[] = {
    {.id = 130,
     .name = "prefix",
     .type = Family::prefixName,
     .flags = Flags::readOnly,
     .get = Zan::get<&R::prefix>},
    {.id = 131,
     .name = "preference",
     .type = "U8",
     .get = Zan::get<&R::preference>,
     .set = Zan::set<&R::preferenceIs>},
    {.id = 132,
     .name = "routeType",
     .type = "Routing::Fib::RouteType",
     .get = Zan::get<&R::routeType>,
     .set = Zan::set<&R::routeTypeIs>},
    {.id = 133,
     .name = "via",
     .type = Family::viaName,
     .flags = Flags::collection,
     .index = {"via", Family::viaName},
     .at = Zan::at<&R::via>,
     .count = Zan::count<&R::viaCount>,
     .iterate = Zan::iterate<&R::viaIterator>,
     .erase = Zan::erase<&R::viaDel>,
     .eraseAll = Zan::eraseAll<&R::viaDelAll>},
    {.id = 134,
     .name = "creationTime",
     .type = "double",
     .get = Zan::get<&R::creationTime>,
     .set = Zan::set<&R::creationTimeIs>},
    {.id = 135, .name = "metric", .type = "U32", .get = Zan::get<&R::metric>, .set = Zan::set<&R::metricIs>},
    {.id = 136,
     .name = "prefixSet",
     .type = "Routing::Multicast::Rib::PrefixSet",
     .flags = Flags::collection,
     .index = {"lPrefix", "Lumo::IpGenPrefix"},
     .at = Zan::at<&R::prefixSet>,
     .count = Zan::count<&R::prefixSetCount>,
     .iterate = Zan::iterate<&R::prefixSetIterator>,
     .erase = Zan::erase<&R::prefixSetDel>},
};
static_assert(Zan::covers(routeRows<Family4>, 130, 136));

template <class Family>
constexpr Zan::TypeTable tableOf{Family::routeName, "Zan::Entity", routeRows<Family>,
                                 Zan::IntrospectionReactorOf<typename RouteOf<Family>::NotifieeConst>::make};

}  // namespace

constinit const Zan::TypeTable routeTable = tableOf<Family4>;
constinit const Zan::TypeTable route6Table = tableOf<Family6>;

}  // namespace glue
