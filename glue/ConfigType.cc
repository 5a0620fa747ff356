#include "Routing/Multicast/Rib/Config.h"
#include "Tables.h"
#include "ValueTypes.h"
#include "Zan/IntrospectionReactor.h"

namespace glue {

namespace {

using Routing::Multicast::Rib::Config;
using Routing::Multicast::Rib::RouteKeyPreference;
using Routing::Multicast::Rib::RouteKeyPrefix;
using Flags = Zan::ZanAttrIntrospectionFlags;
using Zan::AttributeRow;

constexpr AttributeRow configRows[] = {
    {.id = 130,
     .name = "route",
     .type = "Routing::Multicast::Rib::RouteKeyPrefix",
     .flags = Flags::collection,
     .index = {"prefix", "Lumo::IpGenPrefix"},
     .at = Zan::at<&Config::route>,
     .count = Zan::count<&Config::routeCount>,
     .iterate = Zan::iterate<&Config::routeIterator>,
     .erase = Zan::erase<&Config::routeDel>},
};
static_assert(Zan::covers(configRows, 130, 130));

constexpr AttributeRow routeKeyPrefixRows[] = {
    {.id = 130,
     .name = "prefix",
     .type = "Lumo::IpGenPrefix",
     .flags = Flags::readOnly,
     .get = Zan::get<&RouteKeyPrefix::prefix>},
    {.id = 131,
     .name = "pref",
     .type = "Routing::Multicast::Rib::RouteKeyPreference",
     .flags = Flags::collection,
     .index = {"preference", "U8"},
     .at = Zan::at<&RouteKeyPrefix::pref>,
     .count = Zan::count<&RouteKeyPrefix::prefCount>,
     .iterate = Zan::iterate<&RouteKeyPrefix::prefIterator>,
     .erase = Zan::erase<&RouteKeyPrefix::prefDel>},
};
static_assert(Zan::covers(routeKeyPrefixRows, 130, 131));

constexpr AttributeRow routeKeyPreferenceRows[] = {
    {.id = 130,
     .name = "preference",
     .type = "U8",
     .flags = Flags::readOnly,
     .get = Zan::get<&RouteKeyPreference::preference>},
    {.id = 131,
     .name = "rpf",
     .type = "Routing::Multicast::Rib::Rpf",
     .flags = Flags::collection,
     .index = {"rpf", "Routing::Multicast::Rib::Rpf"},
     .at = Zan::at<&RouteKeyPreference::rpf>,
     .count = Zan::count<&RouteKeyPreference::rpfCount>,
     .iterate = Zan::iterate<&RouteKeyPreference::rpfIterator>,
     .erase = Zan::erase<&RouteKeyPreference::rpfDel>},
};
static_assert(Zan::covers(routeKeyPreferenceRows, 130, 131));

}  // namespace

constinit const Zan::TypeTable configTable{"Routing::Multicast::Rib::Config", "Zan::Entity", configRows,
                                           Zan::IntrospectionReactorOf<Config::NotifieeConst>::make};
constinit const Zan::TypeTable routeKeyPrefixTable{
    "Routing::Multicast::Rib::RouteKeyPrefix", "Zan::Entity", routeKeyPrefixRows,
    Zan::IntrospectionReactorOf<RouteKeyPrefix::NotifieeConst>::make};
constinit const Zan::TypeTable routeKeyPreferenceTable{
    "Routing::Multicast::Rib::RouteKeyPreference", "Zan::Entity", routeKeyPreferenceRows,
    Zan::IntrospectionReactorOf<RouteKeyPreference::NotifieeConst>::make};

}  // namespace glue
