#pragma once

#include <array>

#include "Lumo/IntfId.h"
#include "Lumo/IpAddr.h"
#include "Quarn/Table.h"
#include "Zan/Export.h"
#include "Zan/PtrInterface.h"

namespace Quarn::Fib {

struct FecVia {
  Lumo::IpAddr hop;
  Lumo::IntfId intf;
};

/// A forwarding equivalence class: the next hops that some routes share. A count over 128 is not corruption:
/// whoever walks the vias reports it with the range error of the index.
struct Fec {
  static constexpr U32 maxVias = 128;
  U64 fecId;
  U32 viaCount;
  std::array<FecVia, maxVias> via;
};

struct ZAN_EXPORT FecTraits {
  using Record = Fec;
  using Key = U64;
  static constexpr Layout layout{"Quarn::Fib::ForwardingStatus", 2, 3 + Fec::maxVias};
  static Key keyOf(const Record& record) { return record.fecId; }
  static U64 hash(const Key& key) { return Zan::mix(key, 2); }
  static void encode(const Record& record, U64* words);
  static std::optional<Record> decode(const U64* words, std::string& reason);
};

/// The unicast forwarding table, keyed by FEC id: the reading side.
class ZAN_EXPORT ForwardingStatus : public Zan::VFPtrInterface, public TableReader<FecTraits> {
 public:
  /// Attaches to a writer's segment; `fd` stays the caller's.
  explicit ForwardingStatus(int fd) : TableReader(fd) {}
  ~ForwardingStatus() override;
  const Zan::ZanType* fwkType() const override;

  std::optional<Fec> fec(U64 fecId) const { return lookup(fecId); }
  std::optional<Fec> fecOrHandled(U64 fecId) const { return lookupOrHandled(fecId); }
};

/// The writing side, for the host.
class ForwardingStatusWriter : public TableWriter<FecTraits> {
 public:
  using TableWriter::TableWriter;
  void fecIs(const Fec& fec) { set(fec); }
  void fecDel(U64 fecId) { erase(fecId); }
};

}  // namespace Quarn::Fib
