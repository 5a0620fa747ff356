#include "Routing/Multicast/Rib/Status.h"
#include "Routing/Multicast/Shadow/Status.h"
#include "Tables.h"
#include "ValueTypes.h"
#include "Zan/IntrospectionReactor.h"

namespace glue {

namespace {

using S = Routing::Multicast::Rib::Status;
using Shadow = Routing::Multicast::Shadow::Status;
using Flags = Zan::ZanAttrIntrospectionFlags;
using Zan::AttributeRow;

constexpr AttributeRow statusRows[] = {
    {.id = 130,
     .name = "route",
     .type = "Routing::Multicast::Rib::Route",
     .flags = Flags::collection,
     .at = Zan::at<&S::route>,
     .count = Zan::count<&S::routeCount>,
     .iterate = Zan::iterate<&S::routeIterator, Zan::erase<&S::routeDel>>,
     .erase = Zan::erase<&S::routeDel>,
     .eraseAll = Zan::eraseAll<&S::routeDelAll>},
};
static_assert(Zan::covers(statusRows, 130, 130));

constexpr AttributeRow mribShadowRows[] = {
    {.id = 130,
     .name = "route",
     .type = "Routing::Multicast::Rib::Status",
     .get = Zan::get<&Shadow::route>,
     .set = Zan::set<&Shadow::routeIs>},
    {.id = 131,
     .name = "trie",
     .type = "Routing::TrieGen",
     .flags = Flags::readOnly,
     .get = Zan::get<&Shadow::trie>},
};
static_assert(Zan::covers(mribShadowRows, 130, 131));

}  // namespace

constinit const Zan::TypeTable statusTable{"Routing::Multicast::Rib::Status", "Zan::Entity", statusRows,
                                           Zan::IntrospectionReactorOf<S::NotifieeConst>::make};
constinit const Zan::TypeTable mribShadowTable{"Routing::Multicast::Shadow::Status", "Zan::Entity",
                                               mribShadowRows,
                                               Zan::IntrospectionReactorOf<Shadow::NotifieeConst>::make};

}  // namespace glue
