#include "Routing6/Multicast/Rib/Status.h"
#include "Routing6/Multicast/Shadow/Status.h"
#include "Tables.h"
#include "ValueTypes.h"
#include "Zan/IntrospectionReactor.h"

namespace glue {

namespace {

using S = Routing6::Multicast::Rib::Status;
using Shadow = Routing6::Multicast::Shadow::Status;
using Flags = Zan::ZanAttrIntrospectionFlags;
using Zan::AttributeRow;

constexpr AttributeRow status6Rows[] = {
    {.id = 130,
     .name = "route",
     .type = "Routing6::Multicast::Rib::Route",
     .flags = Flags::collection,
     .at = Zan::at<&S::route>,
     .count = Zan::count<&S::routeCount>,
     .iterate = Zan::iterate<&S::routeIterator, Zan::erase<&S::routeDel>>,
     .erase = Zan::erase<&S::routeDel>,
     .eraseAll = Zan::eraseAll<&S::routeDelAll>},
};
static_assert(Zan::covers(status6Rows, 130, 130));

constexpr AttributeRow mribShadow6Rows[] = {
    {.id = 130,
     .name = "route",
     .type = "Routing6::Multicast::Rib::Status",
     .get = Zan::get<&Shadow::route>,
     .set = Zan::set<&Shadow::routeIs>},
    {.id = 131,
     .name = "trie",
     .type = "Routing::TrieGen",
     .flags = Flags::readOnly,
     .get = Zan::get<&Shadow::trie>},
};
static_assert(Zan::covers(mribShadow6Rows, 130, 131));

}  // namespace

constinit const Zan::TypeTable status6Table{"Routing6::Multicast::Rib::Status", "Zan::Entity", status6Rows,
                                            Zan::IntrospectionReactorOf<S::NotifieeConst>::make};
constinit const Zan::TypeTable mribShadow6Table{"Routing6::Multicast::Shadow::Status", "Zan::Entity",
                                                mribShadow6Rows,
                                                Zan::IntrospectionReactorOf<Shadow::NotifieeConst>::make};

}  // namespace glue
