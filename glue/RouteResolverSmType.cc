#include "Pim/MribSm/MribSm.h"
#include "Tables.h"
#include "ValueTypes.h"
#include "Zan/Introspection.h"

namespace glue {

namespace {

using Sm = Routing::Multicast::Rib::RouteResolverSm;
using Entry = Sm::ZanMribForPrefix;
using Flags = Zan::ZanAttrIntrospectionFlags;
using Zan::ArgumentRow;
using Zan::AttributeRow;
using Zan::Form;

constexpr Form handleChangedRouteForms[] = {{{}, Zan::call<&Sm::handleChangedRoute>}};
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
constexpr Form handleInitializeForms[] = {{{}, Zan::call<&Sm::handleInitialize>}};
constexpr ArgumentRow hasNotificationActiveIsArguments[] = {{"active", "bool"}};
constexpr Form hasNotificationActiveIsForms[] = {
    {hasNotificationActiveIsArguments, Zan::call<&Sm::hasNotificationActiveIs>}};
constexpr ArgumentRow zanDoZombieReactorsArguments[] = {{"zombie", "bool"}};
constexpr Form zanDoZombieReactorsForms[] = {
    {zanDoZombieReactorsArguments, Zan::call<&Sm::zanDoZombieReactors>}};
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
    {.id = 135,
     .name = "handleChangedRoute",
     .type = "void",
     .flags = Flags::handler,
     .forms = handleChangedRouteForms},
    {.id = 136,
     .name = "mribForPrefix",
     .type = "Routing::Multicast::Rib::PrefixSet",
     .flags = Flags::collection,
     .at = Zan::at<&Sm::mribForPrefix>,
     .count = Zan::count<&Sm::mribForPrefixCount>,
     .iterate = Zan::iterate<&Sm::mribForPrefixIterator, Zan::erase<&Sm::mribForPrefixDel>>,
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
    {.id = 146,
     .name = "handleInitialize",
     .type = "void",
     .flags = Flags::handler,
     .forms = handleInitializeForms},
    {.id = 147,
     .name = "zan_TrieIn",
     .type = "Routing::TrieGen",
     .get = Zan::get<&Sm::zan_TrieIn>,
     .set = Zan::set<&Sm::zan_TrieInIs>},
    {.id = Zan::zanFwkActivityId,
     .name = "zanFwkActivity",
     .type = "Zan::ActivityConfig",
     .flags = Flags::readOnly | Flags::framework,
     .get = Zan::activityOf},
    {.id = Zan::hasNotificationActiveIsId,
     .name = "hasNotificationActiveIs",
     .type = "void",
     .flags = Flags::handler | Flags::framework,
     .forms = hasNotificationActiveIsForms},
    {.id = 148,
     .name = "zanDoZombieReactors",
     .type = "void",
     .flags = Flags::handler,
     .forms = zanDoZombieReactorsForms},
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
