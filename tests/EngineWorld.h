#pragma once

#include <string>
#include <vector>

#include "Pim/MribSm/MribSm.h"
#include "Quarn/Fib/ForwardingStatus.h"
#include "Quarn/Fib/RouteStatus.h"

/// An agent in small: the inputs and outputs of one engine, with the moves that an agent makes on them.
class EngineWorld {
 public:
  using Config = Routing::Multicast::Rib::Config;
  using MribSm = Routing::Multicast::Rib::MribSm;
  using Rpf = Routing::Multicast::Rib::Rpf;
  using Status = Routing::Multicast::Rib::Status;
  struct Hop {
    std::string address;
    U32 intf;
  };

  EngineWorld();
  ~EngineWorld();

  void start();
  void stop() { mrib = nullptr; }

  void intfIs(U32 id, const std::string& name) { intfDir->intfStatusIs(Lumo::IntfId(id), name); }
  void intfAddrIs(U32 id, const std::string& addr) {
    ipStatus->intfAddrIs(Lumo::IntfId(id), Lumo::IpAddr(addr));
  }
  /// Writes the route and its FEC into the tables, then names it as the changed route.
  void unicastIs(const std::string& prefix, Routing::Fib::RouteType type, U8 preference,
                 std::vector<Hop> hops);
  void unicastDel(const std::string& prefix);
  void connectedIs(const std::string& prefix, U32 intf) {
    unicastIs(prefix, Routing::Fib::RouteType::connected, 0, {{"0.0.0.0", intf}});
  }

  void rpfIs(const std::string& prefix, U8 preference, const Rpf& rpf);
  void rpfDel(const std::string& prefix, U8 preference, const Rpf& rpf);
  static Rpf via(const std::string& address) { return Rpf::ofAddr(Lumo::IpGenAddr(address)); }
  static Rpf intf(U32 id) { return Rpf::ofIntf(Lumo::IntfId(id)); }

  const Routing::Multicast::Rib::Route* route(const std::string& prefix) const {
    return mribStatus->route(Lumo::Prefix(prefix));
  }
  /// "10.9.0.0/16 p1 t4 [20.0.0.5 on eth0]", or "none".
  std::string show(const std::string& prefix) const;
  /// All routes with their prefix sets, and the sets that are registered, a line each.
  std::string state() const;

  Zan::Ptr<Interface::AllIntfStatusDir> intfDir;
  Zan::Ptr<Ip::Status> ipStatus;
  Zan::Ptr<Routing::Multicast::Rib::InterfaceInfo> intfInfo;
  Quarn::Fib::RouteStatusWriter routes;
  Quarn::Fib::ForwardingStatusWriter fecs;
  Zan::Ptr<Routing::TrieGen> unicastTrie;
  Zan::Ptr<Routing::Shadow::Status> urib;
  Zan::Ptr<Config> config;
  Zan::Ptr<Status> mribStatus;
  Zan::Ptr<MribSm> mrib;

 private:
  void followTables();
  void changed(const Lumo::Prefix& prefix);

  U64 nextFec_ = 1;
  U64 routesInstance_ = 0;
  U64 fecsInstance_ = 0;
};
