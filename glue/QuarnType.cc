#include "Quarn/Fib/ForwardingStatus.h"
#include "Quarn/Fib/RouteStatus.h"
#include "Tables.h"
#include "ValueTypes.h"

namespace glue {

namespace {

using Flags = Zan::ZanAttrIntrospectionFlags;
using Quarn::Fib::ForwardingStatus;
using Quarn::Fib::RouteStatus;

// The tables' readers are a base beside the framework's, which `Zan::get` can't cross to.
template <class Table>
Zan::Value instanceOf(const Zan::PtrInterface& table) {
  return Zan::Value::of(static_cast<const Table&>(table).instance());
}
template <class Table>
Zan::Value slotsOf(const Zan::PtrInterface& table) {
  return Zan::Value::of(static_cast<const Table&>(table).slotCount());
}
template <class Table>
constexpr Zan::AttributeRow tableRows[] = {
    {.id = 130, .name = "instance", .type = "U64", .flags = Flags::readOnly, .get = instanceOf<Table>},
    {.id = 131, .name = "slotCount", .type = "U64", .flags = Flags::readOnly, .get = slotsOf<Table>},
};
static_assert(Zan::covers(tableRows<RouteStatus>, 130, 131));

}  // namespace

constinit const Zan::TypeTable routeStatusTable{"Quarn::Fib::RouteStatus", "Zan::PtrInterface",
                                                tableRows<RouteStatus>};
constinit const Zan::TypeTable forwardingStatusTable{"Quarn::Fib::ForwardingStatus", "Zan::PtrInterface",
                                                     tableRows<ForwardingStatus>};

}  // namespace glue
