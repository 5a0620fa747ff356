#include "Pim/MribSm/InterfaceInfo.h"
#include "Tables.h"
#include "ValueTypes.h"
#include "Zan/IntrospectionReactor.h"

namespace glue {

namespace {

using Sm = Routing::Multicast::Rib::InterfaceInfo;
using Flags = Zan::ZanAttrIntrospectionFlags;
using Zan::AttributeRow;

constexpr AttributeRow interfaceInfoRows[] = {
    {.id = 130,
     .name = "ipStatus",
     .type = "Ip::Status",
     .get = Zan::get<&Sm::ipStatus>,
     .set = Zan::set<&Sm::ipStatusIs>},
    {.id = 131,
     .name = "config",
     .type = "Interface::AllIntfConfigDir",
     .get = Zan::get<&Sm::config>,
     .set = Zan::set<&Sm::configIs>},
    {.id = 132,
     .name = "status",
     .type = "Interface::AllIntfStatusDir",
     .get = Zan::get<&Sm::status>,
     .set = Zan::set<&Sm::statusIs>},
};
static_assert(Zan::covers(interfaceInfoRows, 130, 132));

}  // namespace

constinit const Zan::TypeTable interfaceInfoTable{"Routing::Multicast::Rib::InterfaceInfo", "Zan::Entity",
                                                  interfaceInfoRows,
                                                  Zan::IntrospectionReactorOf<Sm::NotifieeConst>::make};

}  // namespace glue
