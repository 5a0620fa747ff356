#include "Routing/Shadow/Status.h"
#include "Tables.h"
#include "ValueTypes.h"
#include "Zan/IntrospectionReactor.h"

namespace glue {

namespace {

using Shadow = Routing::Shadow::Status;
using Trie = Routing::TrieGen;
using Flags = Zan::ZanAttrIntrospectionFlags;
using Zan::ArgumentRow;
using Zan::AttributeRow;
using Zan::Form;

constexpr AttributeRow uribShadowRows[] = {
    {.id = 130,
     .name = "routeStatus",
     .type = "Quarn::Fib::RouteStatus",
     .flags = Flags::readOnly,
     .get = Zan::get<&Shadow::routeStatus>},
    {.id = 131,
     .name = "forwardingStatus",
     .type = "Quarn::Fib::ForwardingStatus",
     .flags = Flags::readOnly,
     .get = Zan::get<&Shadow::forwardingStatus>},
    {.id = 132,
     .name = "trie",
     .type = "Routing::TrieGen",
     .get = Zan::get<&Shadow::trie>,
     .set = Zan::set<&Shadow::trieIs>},
};
static_assert(Zan::covers(uribShadowRows, 130, 132));

constexpr ArgumentRow routeArguments[] = {{"prefix", "Lumo::IpGenPrefix"}};
constexpr Form routeForms[] = {{routeArguments, Zan::call<&Trie::route>}};
constexpr ArgumentRow longestMatchArguments[] = {{"prefix", "Lumo::IpGenPrefix"}};
constexpr Form longestMatchForms[] = {{longestMatchArguments, Zan::call<&Trie::longestMatch>}};
constexpr AttributeRow trieRows[] = {
    {.id = 130,
     .name = "changedRoute",
     .type = "Lumo::IpGenPrefix",
     .get = Zan::get<&Trie::changedRoute>,
     .set = Zan::set<&Trie::changedRouteIs>},
    {.id = 131,
     .name = "af",
     .type = "Lumo::AddressFamily",
     .flags = Flags::readOnly,
     .get = Zan::get<&Trie::af>},
    {.id = 132, .name = "nodes", .type = "S32", .flags = Flags::readOnly, .get = Zan::get<&Trie::nodes>},
    {.id = 133, .name = "route", .type = "bool", .flags = Flags::handler, .forms = routeForms},
    {.id = 134,
     .name = "longestMatch",
     .type = "Lumo::IpGenPrefix",
     .flags = Flags::handler,
     .forms = longestMatchForms},
};
static_assert(Zan::covers(trieRows, 130, 134));

}  // namespace

constinit const Zan::TypeTable uribShadowTable{"Routing::Shadow::Status", "Zan::Entity", uribShadowRows,
                                               Zan::IntrospectionReactorOf<Shadow::NotifieeConst>::make};
constinit const Zan::TypeTable trieTable{"Routing::TrieGen", "Zan::Entity", trieRows,
                                         Zan::IntrospectionReactorOf<Trie::NotifieeConst>::make};

}  // namespace glue
