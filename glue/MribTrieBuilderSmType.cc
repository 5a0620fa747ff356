#include "Pim/MribTrieBuilder/MribTrieBuilderSm.h"
#include "Tables.h"
#include "ValueTypes.h"
#include "Zan/Introspection.h"

namespace glue {

namespace {

using Sm = Routing::Multicast::Rib::MribTrieBuilderSm;
using ZanRoute = Sm::ZanRoute;
using Flags = Zan::ZanAttrIntrospectionFlags;
using Zan::ArgumentRow;
using Zan::AttributeRow;
using Zan::Form;

constexpr Form handleInitializeForms[] = {{{}, Zan::call<&Sm::handleInitialize>}};
constexpr Form handleRouteForms[] = {{{}, Zan::call<&Sm::handleRoute>}};
constexpr ArgumentRow hasNotificationActiveIsArguments[] = {{"active", "bool"}};
constexpr Form hasNotificationActiveIsForms[] = {
    {hasNotificationActiveIsArguments, Zan::call<&Sm::hasNotificationActiveIs>}};
constexpr ArgumentRow zanDoZombieReactorsArguments[] = {{"zombie", "bool"}};
constexpr Form zanDoZombieReactorsForms[] = {
    {zanDoZombieReactorsArguments, Zan::call<&Sm::zanDoZombieReactors>}};
constexpr AttributeRow trieBuilderRows[] = {
    {.id = 130,
     .name = "status",
     .type = "Routing::Multicast::Rib::Status",
     .flags = Flags::constInput,
     .get = Zan::get<&Sm::status>},
    {.id = 131,
     .name = "mribRouteStatus",
     .type = "Routing::Multicast::Shadow::Status",
     .flags = Flags::readOnly,
     .get = Zan::get<&Sm::mribRouteStatus>},
    {.id = Zan::zanFwkActivityId,
     .name = "zanFwkActivity",
     .type = "Zan::ActivityConfig",
     .flags = Flags::readOnly | Flags::framework,
     .get = Zan::activityOf},
    {.id = 132,
     .name = "initialize",
     .type = "bool",
     .get = Zan::get<&Sm::initialize>,
     .set = Zan::set<&Sm::initializeIs>},
    {.id = 133,
     .name = "handleInitialize",
     .type = "void",
     .flags = Flags::handler,
     .forms = handleInitializeForms},
    {.id = 134,
     .name = "trie",
     .type = "Routing::TrieGen",
     .get = Zan::get<&Sm::trie>,
     .set = Zan::set<&Sm::trieIs>},
    {.id = 135, .name = "handleRoute", .type = "void", .flags = Flags::handler, .forms = handleRouteForms},
    {.id = 136,
     .name = "route",
     .type = "Routing::Multicast::Rib::MribTrieBuilderSm::ZanRoute",
     .flags = Flags::collection | Flags::reactor,
     .at = Zan::at<&Sm::route>,
     .count = Zan::count<&Sm::routeCount>,
     .iterate = Zan::iterate<&Sm::routeIterator, Zan::erase<&Sm::routeDel>>,
     .erase = Zan::erase<&Sm::routeDel>,
     .eraseAll = Zan::eraseAll<&Sm::routeDelAll>},
    {.id = 137,
     .name = "trieUpdates",
     .type = "U32",
     .get = Zan::get<&Sm::trieUpdates>,
     .set = Zan::set<&Sm::trieUpdatesIs>},
    {.id = 138,
     .name = "deletedPreference",
     .type = "U8",
     .get = Zan::get<&Sm::deletedPreference>,
     .set = Zan::set<&Sm::deletedPreferenceIs>},
    {.id = 139,
     .name = "deletedPreferenceUnknown",
     .type = "U8",
     .flags = Flags::readOnly,
     .get = Zan::getConstant<Sm::deletedPreferenceUnknown>},
    {.id = Zan::hasNotificationActiveIsId,
     .name = "hasNotificationActiveIs",
     .type = "void",
     .flags = Flags::handler | Flags::framework,
     .forms = hasNotificationActiveIsForms},
    {.id = 140,
     .name = "zanDoZombieReactors",
     .type = "void",
     .flags = Flags::handler,
     .forms = zanDoZombieReactorsForms},
};
static_assert(Zan::covers(trieBuilderRows, 130, 140));

constexpr Form routehandlePreferenceForms[] = {{{}, Zan::call<&ZanRoute::handlePreference>}};
constexpr Form routehandleDelForms[] = {{{}, Zan::call<&ZanRoute::handleDel>}};
constexpr ArgumentRow routezanDoZombieReactorsArguments[] = {{"zombie", "bool"}};
constexpr Form routezanDoZombieReactorsForms[] = {
    {routezanDoZombieReactorsArguments, Zan::call<&ZanRoute::zanDoZombieReactors>}};
constexpr AttributeRow trieBuilderRouteRows[] = {
    {.id = 130,
     .name = "notifier",
     .type = "Routing::Multicast::Rib::Route",
     .flags = Flags::constInput,
     .get = Zan::get<&ZanRoute::notifierPtr>},
    {.id = 131,
     .name = "handlePreference",
     .type = "void",
     .flags = Flags::handler,
     .forms = routehandlePreferenceForms},
    {.id = 132, .name = "handleDel", .type = "void", .flags = Flags::handler, .forms = routehandleDelForms},
    {.id = 133,
     .name = "zanDoZombieReactors",
     .type = "void",
     .flags = Flags::handler,
     .forms = routezanDoZombieReactorsForms},
};
static_assert(Zan::covers(trieBuilderRouteRows, 130, 133));

}  // namespace

constinit const Zan::TypeTable trieBuilderTable{"Routing::Multicast::Rib::MribTrieBuilderSm",
                                                "Zan::PtrInterface", trieBuilderRows};
constinit const Zan::TypeTable trieBuilderRouteTable{"Routing::Multicast::Rib::MribTrieBuilderSm::ZanRoute",
                                                     "Zan::PtrInterface", trieBuilderRouteRows};

}  // namespace glue
