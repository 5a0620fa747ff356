#pragma once

#include <map>
#include <optional>
#include <set>

#include "Pim/MribSm/InterfaceInfo.h"
#include "mrib/Transaction.h"

namespace mrib {

/// One interface, with what is known of it.
struct Intf {
  struct Held {
    Lumo::IpAddr address;
    bool secondary;
  };
  Link link;  ///< without name while only addresses are known
  std::vector<Held> addresses;

  bool exists() const { return !link.name.empty(); }
  bool isNothing() const { return !exists() && addresses.empty(); }
  /// The address that RPFs by this interface resolve by: the lowest that is not secondary, so that it depends
  /// on no order.
  std::optional<Lumo::IpAddr> rpfAddress() const;
};

/// The links and their addresses, and the entities that the engine reads them from. An interface keeps its
/// entity while it exists under its name.
class Interfaces {
 public:
  /// The interfaces that a transaction touches, as they would be.
  using Staged = std::map<U32, Intf>;

  Interfaces();

  Staged stage(const std::vector<Transaction::LinkOp>& ops) const;
  /// What is wrong with the staged interfaces: names that two would have.
  std::vector<std::string> faults(const Staged& staged) const;
  /// Whether the entity will be another one.
  bool replaces(U32 index, const Intf& staged) const;
  void apply(const Staged& staged);

  const Intf* find(U32 index) const;
  const Intf* find(const std::string& name) const;
  const std::map<U32, Intf>& all() const { return intfs_; }
  /// Says to a transaction what is known of an interface.
  static void tell(U32 index, const Intf& intf, Transaction& into);

  const Zan::Ptr<Interface::AllIntfStatusDir>& directory() const { return directory_; }
  const Zan::Ptr<Routing::Multicast::Rib::InterfaceInfo>& info() const { return info_; }

 private:
  void applyTo(U32 index, const Intf& staged);

  std::map<U32, Intf> intfs_;
  std::map<std::string, U32> byName_;
  Zan::Ptr<Interface::AllIntfStatusDir> directory_;
  Zan::Ptr<Ip::Status> ipStatus_;
  Zan::Ptr<Routing::Multicast::Rib::InterfaceInfo> info_;
};

}  // namespace mrib
