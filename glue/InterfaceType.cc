#include "Interface/AllIntfConfigDir.h"
#include "Interface/AllIntfStatusDir.h"
#include "Ip/Status.h"
#include "Tables.h"
#include "ValueTypes.h"
#include "Zan/IntrospectionReactor.h"

namespace glue {

namespace {

using Ip::IntfAddr;
using Ip::Status;
using Dir = Interface::AllIntfStatusDir;
using Intf = Interface::IntfStatus;
using Flags = Zan::ZanAttrIntrospectionFlags;
using Zan::AttributeRow;

constexpr AttributeRow ipStatusRows[] = {
    {.id = 130,
     .name = "intfAddr",
     .type = "Ip::IntfAddr",
     .flags = Flags::collection,
     .index = {"intfId", "Lumo::IntfId"},
     .at = Zan::at<&Status::intfAddr>,
     .count = Zan::count<&Status::intfAddrCount>,
     .iterate = Zan::iterate<&Status::intfAddrIterator>,
     .erase = Zan::erase<&Status::intfAddrDel>},
};
static_assert(Zan::covers(ipStatusRows, 130, 130));

constexpr AttributeRow intfAddrRows[] = {
    {.id = 130,
     .name = "intfId",
     .type = "Lumo::IntfId",
     .flags = Flags::readOnly,
     .get = Zan::get<&IntfAddr::intfId>},
    {.id = 131,
     .name = "addr",
     .type = "Lumo::IpAddr",
     .flags = Flags::readOnly,
     .get = Zan::get<&IntfAddr::addr>},
};
static_assert(Zan::covers(intfAddrRows, 130, 131));

constexpr AttributeRow intfStatusDirRows[] = {
    {.id = 130,
     .name = "intfStatus",
     .type = "Interface::IntfStatus",
     .flags = Flags::collection,
     .index = {"intfId", "Lumo::IntfId"},
     .at = Zan::at<&Dir::intfStatus>,
     .count = Zan::count<&Dir::intfStatusCount>,
     .iterate = Zan::iterate<&Dir::intfStatusIterator>,
     .erase = Zan::erase<&Dir::intfStatusDel>},
};
static_assert(Zan::covers(intfStatusDirRows, 130, 130));

constexpr AttributeRow intfStatusRows[] = {
    {.id = 130,
     .name = "intfId",
     .type = "Lumo::IntfId",
     .flags = Flags::readOnly,
     .get = Zan::get<&Intf::intfId>},
};
static_assert(Zan::covers(intfStatusRows, 130, 130));

}  // namespace

constinit const Zan::TypeTable ipStatusTable{"Ip::Status", "Zan::Entity", ipStatusRows,
                                             Zan::IntrospectionReactorOf<Status::NotifieeConst>::make};
constinit const Zan::TypeTable intfAddrTable{"Ip::IntfAddr", "Zan::Entity", intfAddrRows};
constinit const Zan::TypeTable intfStatusDirTable{"Interface::AllIntfStatusDir", "Zan::Entity",
                                                  intfStatusDirRows,
                                                  Zan::IntrospectionReactorOf<Dir::NotifieeConst>::make};
constinit const Zan::TypeTable intfStatusTable{"Interface::IntfStatus", "Zan::Entity", intfStatusRows};
constinit const Zan::TypeTable intfConfigDirTable{"Interface::AllIntfConfigDir", "Zan::Entity", {}};

}  // namespace glue
