#include "CommonRows.h"
#include "Pim/MribSm/MribSm.h"
#include "Tables.h"
#include "ValueTypes.h"

namespace glue {

namespace {

using Sm = Routing::Multicast::Rib::RouteResolverSm;
using Entry = Sm::ZanMribForPrefix;
using Flags = Zan::ZanAttrIntrospectionFlags;
using Zan::ArgumentRow;
using Zan::AttributeRow;
using Zan::Form;

constexpr ArgumentRow doAddOrUpdateRouteArguments[] = {
    {"rpf", "Routing::Multicast::Rib::Rpf"}, {"p", "Lumo::IpGenPrefix"}, {"pref", "U8"}};
constexpr Form doAddOrUpdateRouteForms[] = {
    {doAddOrUpdateRouteArguments, Zan::call<&Sm::doAddOrUpdateRoute>}};
constexpr ArgumentRow doDelRpfArguments[] = {{"rpf", "Routing::Multicast::Rib::Rpf"},
                                             {"p", "Lumo::IpGenPrefix"}};
constexpr Form doDelRpfForms[] = {{doDelRpfArguments, Zan::call<&Sm::doDelRpf>}};
constexpr ArgumentRow doDelRouteArguments[] = {{"p", "Lumo::IpGenPrefix"}};
constexpr Form doDelRouteForms[] = {{doDelRouteArguments, Zan::call<&Sm::doDelRoute>}};
constexpr ArgumentRow doAddWatchPrefixArguments[] = {{"lPrefix", "Lumo::IpGenPrefix"},
                                                     {"p", "Lumo::IpGenPrefix"}};
constexpr Form doAddWatchPrefixForms[] = {{doAddWatchPrefixArguments, Zan::call<&Sm::doAddWatchPrefix>}};
constexpr ArgumentRow doDelWatchPrefixArguments[] = {{"prefix", "Lumo::IpGenPrefix"},
                                                     {"paddr", "Routing::Multicast::Rib::PrefixSet"}};
constexpr Form doDelWatchPrefixForms[] = {{doDelWatchPrefixArguments, Zan::call<&Sm::doDelWatchPrefix>}};
constexpr ArgumentRow doMaybeRefreshRoutesArguments[] = {{"changedPrefix", "Lumo::IpGenPrefix"},
                                                         {"add", "bool"}};
constexpr Form doMaybeRefreshRoutesForms[] = {
    {doMaybeRefreshRoutesArguments, Zan::call<&Sm::doMaybeRefreshRoutes>}};
constexpr ArgumentRow doRecursiveDeleteArguments[] = {{"delRoute", "Routing::Multicast::Rib::Route"},
                                                      {"pset", "Routing::Multicast::Rib::PrefixSet"}};
constexpr Form doRecursiveDeleteForms[] = {{doRecursiveDeleteArguments, Zan::call<&Sm::doRecursiveDelete>}};
constexpr ArgumentRow doRecursiveUpdateArguments[] = {{"pset", "Routing::Multicast::Rib::PrefixSet"}};
constexpr Form doRecursiveUpdateForms[] = {{doRecursiveUpdateArguments, Zan::call<&Sm::doRecursiveUpdate>}};
constexpr AttributeRow routeResolverRows[] = {
    {.id = 130,
     .name = "uribStatus",
     .type = "Routing::Shadow::Status",
     .get = Zan::get<&Sm::uribStatus>,
     .set = Zan::set<&Sm::uribStatusIs>},
    {.id = 131,
     .name = "mribStatus",
     .type = "Routing::Multicast::Rib::Status",
     .get = Zan::get<&Sm::mribStatus>,
     .set = Zan::set<&Sm::mribStatusIs>},
    {.id = 132,
     .name = "intfStatus",
     .type = "Interface::AllIntfStatusDir",
     .flags = Flags::constInput,
     .get = Zan::get<&Sm::intfStatus>},
    {.id = 133,
     .name = "mribSm",
     .type = "Routing::Multicast::Rib::MribSm",
     .flags = Flags::readOnly,
     .get = Zan::get<&Sm::mribSm>},
    {.id = 134,
     .name = "initialized",
     .type = "bool",
     .get = Zan::get<&Sm::initialized>,
     .set = Zan::set<&Sm::initializedIs>},
    handlerRow<&Sm::handleChangedRoute>(135, "handleChangedRoute"),
    {.id = 136,
     .name = "mribForPrefix",
     .type = "Routing::Multicast::Rib::PrefixSet",
     .flags = Flags::collection,
     .set = Zan::set<&Sm::mribForPrefixIs>,
     .index = {"lPrefix", "Lumo::IpGenPrefix"},
     .at = Zan::at<&Sm::mribForPrefix>,
     .count = Zan::count<&Sm::mribForPrefixCount>,
     .iterate = Zan::iterate<static_cast<Sm::MribForPrefixIteratorConst (Sm::*)() const>(
         &Sm::mribForPrefixIterator)>,
     .erase = Zan::erase<&Sm::mribForPrefixDel>,
     .eraseAll = Zan::eraseAll<&Sm::mribForPrefixDelAll>},
    {.id = 137,
     .name = "defaultPrefix",
     .type = "Lumo::IpGenPrefix",
     .get = Zan::get<&Sm::defaultPrefix>,
     .set = Zan::set<&Sm::defaultPrefixIs>},
    {.id = 138,
     .name = "doAddOrUpdateRoute",
     .type = "S32",
     .flags = Flags::handler,
     .forms = doAddOrUpdateRouteForms},
    {.id = 139, .name = "doDelRpf", .type = "S32", .flags = Flags::handler, .forms = doDelRpfForms},
    {.id = 140, .name = "doDelRoute", .type = "void", .flags = Flags::handler, .forms = doDelRouteForms},
    {.id = 141,
     .name = "doAddWatchPrefix",
     .type = "void",
     .flags = Flags::handler,
     .forms = doAddWatchPrefixForms},
    {.id = 142,
     .name = "doDelWatchPrefix",
     .type = "void",
     .flags = Flags::handler,
     .forms = doDelWatchPrefixForms},
    {.id = 143,
     .name = "doMaybeRefreshRoutes",
     .type = "void",
     .flags = Flags::handler,
     .forms = doMaybeRefreshRoutesForms},
    {.id = 144,
     .name = "doRecursiveDelete",
     .type = "void",
     .flags = Flags::handler,
     .forms = doRecursiveDeleteForms},
    {.id = 145,
     .name = "doRecursiveUpdate",
     .type = "void",
     .flags = Flags::handler,
     .forms = doRecursiveUpdateForms},
    handlerRow<&Sm::handleInitialize>(146, "handleInitialize"),
    {.id = 147,
     .name = "zan_TrieIn",
     .type = "Routing::TrieGen",
     .get = Zan::get<&Sm::zan_TrieIn>,
     .set = Zan::set<&Sm::zan_TrieInIs>},
    activityRow,
    activeRow,
    zombieRow<Sm>(148),
};
static_assert(Zan::covers(routeResolverRows, 130, 148));

constexpr AttributeRow mribForPrefixRows[] = {
    {.id = 130,
     .name = "mribForPrefix",
     .type = "Routing::Multicast::Rib::PrefixSet",
     .flags = Flags::readOnly,
     .get = Zan::get<&Entry::mribForPrefix>},
    {.id = 131,
     .name = "lPrefix",
     .type = "Lumo::IpGenPrefix",
     .flags = Flags::readOnly,
     .get = Zan::get<&Entry::fwkKey>},
};
static_assert(Zan::covers(mribForPrefixRows, 130, 131));

}  // namespace

constinit const Zan::TypeTable routeResolverTable{"Routing::Multicast::Rib::RouteResolverSm",
                                                  "Zan::PtrInterface", routeResolverRows};
constinit const Zan::TypeTable mribForPrefixTable{
    "Routing::Multicast::Rib::RouteResolverSm::ZanMribForPrefix", "Zan::PtrInterface", mribForPrefixRows};

}  // namespace glue
