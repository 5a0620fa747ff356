#include "CommonRows.h"
#include "Pim/MribSm/ConfigReactors.h"
#include "Tables.h"
#include "ValueTypes.h"

namespace glue {

namespace {

using Sm = Routing::Multicast::Rib::MribSm;
using Prefix = Sm::ZanMribConfigPrefix;
using Pref = Prefix::ZanMribConfigPref;
using Flags = Zan::ZanAttrIntrospectionFlags;
using Zan::ArgumentRow;
using Zan::AttributeRow;
using Zan::Form;

constexpr ArgumentRow routeResolverArguments[] = {{"uribStatus", "Routing::Shadow::Status"},
                                                  {"mribStatus", "Routing::Multicast::Rib::Status"},
                                                  {"allIntfStatusDir", "Interface::AllIntfStatusDir"}};
constexpr Form routeResolverForms[] = {{routeResolverArguments, Zan::call<&Sm::routeResolverIs>}};
constexpr ArgumentRow mribShadowArguments[] = {{"name", "Zan::Name"}};
constexpr Form mribShadowForms[] = {{mribShadowArguments, Zan::call<&Sm::mribShadowIs>}};
constexpr ArgumentRow trieBuilderArguments[] = {{"mribStatus", "Routing::Multicast::Rib::Status"},
                                                {"mribRouteStatus", "Routing::Multicast::Shadow::Status"}};
constexpr Form trieBuilderForms[] = {{trieBuilderArguments, Zan::call<&Sm::trieBuilderIs>}};
constexpr AttributeRow mribSmRows[] = {
    activityRow,
    {.id = 130,
     .name = "initialize",
     .type = "bool",
     .get = Zan::get<&Sm::initialize>,
     .set = Zan::set<&Sm::initializeIs>},
    handlerRow<&Sm::handleInitialize>(131, "handleInitialize"),
    {.id = 132,
     .name = "intfInfo",
     .type = "Routing::Multicast::Rib::InterfaceInfo",
     .flags = Flags::reactor,
     .get = Zan::get<&Sm::intfInfo>,
     .set = Zan::set<&Sm::intfInfoIs>},
    {.id = 133,
     .name = "uribShadowStatus",
     .type = "Routing::Shadow::Status",
     .flags = Flags::reactor,
     .get = Zan::get<&Sm::uribShadowStatus>,
     .set = Zan::set<&Sm::uribShadowStatusIs>},
    {.id = 134,
     .name = "mribConfig",
     .type = "Routing::Multicast::Rib::Config",
     .flags = Flags::reactor,
     .get = Zan::get<&Sm::mribConfig>,
     .set = Zan::set<&Sm::mribConfigIs>},
    {.id = 135,
     .name = "mribStatus",
     .type = "Routing::Multicast::Rib::Status",
     .flags = Flags::readOnly,
     .get = Zan::get<&Sm::mribStatus>},
    {.id = 136,
     .name = "allIntfStatusDir",
     .type = "Interface::AllIntfStatusDir",
     .flags = Flags::constInput,
     .get = Zan::get<&Sm::allIntfStatusDir>},
    {.id = 137,
     .name = "ipStatus",
     .type = "Ip::Status",
     .get = Zan::get<&Sm::ipStatus>,
     .set = Zan::set<&Sm::ipStatusIs>},
    {.id = 138,
     .name = "intfStatus",
     .type = "Interface::AllIntfStatusDir",
     .get = Zan::get<&Sm::intfStatus>,
     .set = Zan::set<&Sm::intfStatusIs>},
    {.id = 139,
     .name = "intfConfig",
     .type = "Interface::AllIntfConfigDir",
     .get = Zan::get<&Sm::intfConfig>,
     .set = Zan::set<&Sm::intfConfigIs>},
    {.id = 140,
     .name = "mribConfigPrefix",
     .type = "Routing::Multicast::Rib::MribSm::ZanMribConfigPrefix",
     .flags = Flags::collection | Flags::reactor,
     .index = {"prefix", "Lumo::IpGenPrefix"},
     .at = Zan::at<&Sm::mribConfigPrefix>,
     .count = Zan::count<&Sm::mribConfigPrefixCount>,
     .iterate = Zan::iterate<&Sm::mribConfigPrefixIterator>,
     .erase = Zan::erase<&Sm::mribConfigPrefixDel>,
     .eraseAll = Zan::eraseAll<&Sm::mribConfigPrefixDelAll>},
    {.id = 141,
     .name = "routeResolver",
     .type = "Routing::Multicast::Rib::RouteResolverSm",
     .get = Zan::get<&Sm::routeResolver>,
     .forms = routeResolverForms},
    {.id = 142,
     .name = "mribShadow",
     .type = "Routing::Multicast::Shadow::Status",
     .get = Zan::get<&Sm::mribShadow>,
     .forms = mribShadowForms},
    {.id = 143,
     .name = "trieBuilder",
     .type = "Routing::Multicast::Rib::MribTrieBuilderSm",
     .get = Zan::get<&Sm::trieBuilder>,
     .forms = trieBuilderForms},
    {.id = 144,
     .name = "defaultPrefix",
     .type = "Lumo::IpGenPrefix",
     .get = Zan::get<&Sm::defaultPrefix>,
     .set = Zan::set<&Sm::defaultPrefixIs>},
    activeRow,
    zombieRow<Sm>(145),
};
static_assert(Zan::covers(mribSmRows, 130, 145));

constexpr AttributeRow mribConfigPrefixRows[] = {
    {.id = 130,
     .name = "notifier",
     .type = "Routing::Multicast::Rib::RouteKeyPrefix",
     .flags = Flags::constInput,
     .get = Zan::get<&Prefix::notifierPtr>},
    {.id = 131,
     .name = "mribConfigPref",
     .type = "Routing::Multicast::Rib::MribSm::ZanMribConfigPrefix::ZanMribConfigPref",
     .flags = Flags::collection | Flags::reactor,
     .index = {"preference", "U8"},
     .at = Zan::at<&Prefix::mribConfigPref>,
     .count = Zan::count<&Prefix::mribConfigPrefCount>,
     .iterate = Zan::iterate<&Prefix::mribConfigPrefIterator>,
     .erase = Zan::erase<&Prefix::mribConfigPrefDel>,
     .eraseAll = Zan::eraseAll<&Prefix::mribConfigPrefDelAll>},
    handlerRow<&Prefix::handleDel>(132, "handleDel"),
    zombieRow<Prefix>(133),
};
static_assert(Zan::covers(mribConfigPrefixRows, 130, 133));

constexpr ArgumentRow prefhandleRpfArguments2[] = {{"rpf", "Routing::Multicast::Rib::Rpf"}};
constexpr Form prefhandleRpfForms[] = {
    {{}, Zan::call<static_cast<void (Pref::*)()>(&Pref::handleRpf)>},
    {prefhandleRpfArguments2,
     Zan::call<static_cast<void (Pref::*)(const Routing::Multicast::Rib::Rpf&)>(&Pref::handleRpf)>}};
constexpr AttributeRow mribConfigPrefRows[] = {
    {.id = 130,
     .name = "notifier",
     .type = "Routing::Multicast::Rib::RouteKeyPreference",
     .flags = Flags::constInput,
     .get = Zan::get<&Pref::notifierPtr>},
    {.id = 131, .name = "handleRpf", .type = "void", .flags = Flags::handler, .forms = prefhandleRpfForms},
    handlerRow<&Pref::handleDel>(132, "handleDel"),
    zombieRow<Pref>(133),
};
static_assert(Zan::covers(mribConfigPrefRows, 130, 133));

}  // namespace

constinit const Zan::TypeTable mribSmTable{"Routing::Multicast::Rib::MribSm", "Zan::PtrInterface",
                                           mribSmRows};
constinit const Zan::TypeTable mribConfigPrefixTable{"Routing::Multicast::Rib::MribSm::ZanMribConfigPrefix",
                                                     "Zan::PtrInterface", mribConfigPrefixRows};
constinit const Zan::TypeTable mribConfigPrefTable{
    "Routing::Multicast::Rib::MribSm::ZanMribConfigPrefix::ZanMribConfigPref", "Zan::PtrInterface",
    mribConfigPrefRows};

}  // namespace glue
