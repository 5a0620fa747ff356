#include "Routing/Multicast/Rib/PrefixSet.h"
#include "Tables.h"
#include "ValueTypes.h"
#include "Zan/IntrospectionReactor.h"

namespace glue {

namespace {

using Set = Routing::Multicast::Rib::PrefixSet;
using Flags = Zan::ZanAttrIntrospectionFlags;
using Zan::AttributeRow;

constexpr AttributeRow prefixSetRows[] = {
    {.id = 130,
     .name = "lPrefix",
     .type = "Lumo::IpGenPrefix",
     .flags = Flags::readOnly,
     .get = Zan::get<&Set::lPrefix>},
    {.id = 131,
     .name = "prefix",
     .type = "Lumo::IpGenPrefix",
     .flags = Flags::collection,
     .index = {"prefix", "Lumo::IpGenPrefix"},
     .at = Zan::at<&Set::prefix>,
     .count = Zan::count<&Set::prefixCount>,
     .iterate = Zan::iterate<&Set::prefixIterator>,
     .erase = Zan::erase<&Set::prefixDel>},
};
static_assert(Zan::covers(prefixSetRows, 130, 131));

}  // namespace

constinit const Zan::TypeTable prefixSetTable{"Routing::Multicast::Rib::PrefixSet", "Zan::Entity",
                                              prefixSetRows,
                                              Zan::IntrospectionReactorOf<Set::NotifieeConst>::make};

}  // namespace glue
