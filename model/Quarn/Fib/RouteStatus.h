#pragma once

#include "Lumo/Prefix.h"
#include "Quarn/Table.h"
#include "Routing/Fib/RouteType.h"
#include "Zan/Export.h"
#include "Zan/PtrInterface.h"

namespace Quarn::Fib {

/// A unicast route: its type, its preference, and the FEC that it forwards to.
struct Route {
  Lumo::Prefix prefix;
  Routing::Fib::RouteType routeType;
  U8 preference;
  U64 fecId;
};

struct ZAN_EXPORT RouteTraits {
  using Record = Route;
  using Key = Lumo::Prefix;
  static constexpr Layout layout{"Quarn::Fib::RouteStatus", 1, 3};
  static Key keyOf(const Record& record) { return record.prefix; }
  static U64 hash(const Key& key) { return key.hash(); }
  static void encode(const Record& record, U64* words);
  static std::optional<Record> decode(const U64* words, std::string& reason);
};

/// The unicast route table, keyed by prefix: the reading side.
class ZAN_EXPORT RouteStatus : public Zan::VFPtrInterface, public TableReader<RouteTraits> {
 public:
  /// Attaches to a writer's segment; `fd` stays the caller's.
  explicit RouteStatus(int fd) : TableReader(fd) {}
  ~RouteStatus() override;
  const Zan::ZanType* fwkType() const override;

  std::optional<Route> route(const Lumo::Prefix& prefix) const { return lookup(prefix); }
};

/// The writing side, for the host.
class RouteStatusWriter : public TableWriter<RouteTraits> {
 public:
  using TableWriter::TableWriter;
  void routeIs(const Route& route) { set(route); }
  void routeDel(const Lumo::Prefix& prefix) { erase(prefix); }
};

}  // namespace Quarn::Fib
