#include "Routing/Multicast/Rib/Status.h"
#include "Routing/Multicast/Shadow/Status.h"
#include "Tables.h"
#include "ValueTypes.h"
#include "Zan/IntrospectionReactor.h"

namespace glue {

namespace {

using Routing::Family4;
using Routing::Family6;
template <class Family>
using StatusOf = Routing::Multicast::StatusOf<Family>;
template <class Family>
using ShadowStatusOf = Routing::Multicast::ShadowStatusOf<Family>;
using Flags = Zan::ZanAttrIntrospectionFlags;
using Zan::AttributeRow;

template <class Family, class S = StatusOf<Family>>
constexpr AttributeRow statusRows[] = {
    {.id = 130,
     .name = "route",
     .type = Family::routeName,
     .flags = Flags::collection,
     .index = {"prefix", Family::prefixName},
     .at = Zan::at<&S::route>,
     .count = Zan::count<&S::routeCount>,
     .iterate = Zan::iterate<&S::routeIterator>,
     .erase = Zan::erase<&S::routeDel>,
     .eraseAll = Zan::eraseAll<&S::routeDelAll>},
};
static_assert(Zan::covers(statusRows<Family4>, 130, 130));

template <class Family, class Shadow = ShadowStatusOf<Family>>
constexpr AttributeRow mribShadowRows[] = {
    {.id = 130,
     .name = "route",
     .type = Family::statusName,
     .get = Zan::get<&Shadow::route>,
     .set = Zan::set<&Shadow::routeIs>},
    {.id = 131,
     .name = "trie",
     .type = "Routing::TrieGen",
     .flags = Flags::readOnly,
     .get = Zan::get<&Shadow::trie>},
};
static_assert(Zan::covers(mribShadowRows<Family4>, 130, 131));

template <class Family>
constexpr Zan::TypeTable statusTableOf{
    Family::statusName, "Zan::Entity", statusRows<Family>,
    Zan::IntrospectionReactorOf<typename StatusOf<Family>::NotifieeConst>::make};
template <class Family>
constexpr Zan::TypeTable shadowTableOf{
    Family::shadowName, "Zan::Entity", mribShadowRows<Family>,
    Zan::IntrospectionReactorOf<typename ShadowStatusOf<Family>::NotifieeConst>::make};

}  // namespace

constinit const Zan::TypeTable statusTable = statusTableOf<Family4>;
constinit const Zan::TypeTable status6Table = statusTableOf<Family6>;
constinit const Zan::TypeTable mribShadowTable = shadowTableOf<Family4>;
constinit const Zan::TypeTable mribShadow6Table = shadowTableOf<Family6>;

}  // namespace glue
