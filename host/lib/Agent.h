#pragma once

#include <map>
#include <optional>
#include <string>
#include <vector>

#include "ConfigFile.h"
#include "KernelState.h"
#include "Pim/MribSm/MribSm.h"

namespace host {

/// The routing agent that the engine needs: owns its inputs and outputs, fills them from a kernel state and a
/// configuration, and starts it.
class Agent {
 public:
  /// Writes the kernel state into the interface entities and the shared-memory tables, the lines into the
  /// MRIB configuration, and starts the engine on them. Throws Error, before anything is built, for a
  /// configuration whose routes could resolve through each other in a circle.
  Agent(const KernelState& kernel, const std::vector<MrouteLine>& lines);
  ~Agent();
  Agent(const Agent&) = delete;
  Agent& operator=(const Agent&) = delete;

  const Zan::Ptr<Routing::Multicast::Rib::MribSm>& mribSm() const { return mribSm_; }
  const Routing::Multicast::Rib::Status& mrib() const { return *mribStatus_; }
  /// The MRIB route that a packet from `source` must come in by; null when there is none.
  const Routing::Multicast::Rib::Route* rpf(Lumo::IpAddr source) const;
  /// Why a line of the configuration is not resolved; nothing when its route is installed.
  std::optional<std::string> whyUnresolved(const MrouteLine& line) const;

 private:
  void loadInterfaces(const KernelState& kernel);
  void loadRoutes(const KernelState& kernel);
  void loadConfig(const std::vector<MrouteLine>& lines);
  Routing::Multicast::Rib::Rpf rpfOf(const MrouteLine& line);
  U64 fecFor(const std::vector<NextHop>& hops);
  Lumo::IpGenPrefix longestMatch(Lumo::IpAddr address) const;

  std::map<std::string, Lumo::IntfId> intfIds_;
  std::map<std::vector<std::pair<U32, U32>>, U64> fecIds_;
  Zan::Ptr<Interface::AllIntfStatusDir> intfDir_;
  Zan::Ptr<Ip::Status> ipStatus_;
  Zan::Ptr<Routing::Multicast::Rib::InterfaceInfo> intfInfo_;
  Quarn::Fib::RouteStatusWriter routes_;
  Quarn::Fib::ForwardingStatusWriter fecs_;
  Zan::Ptr<Routing::Shadow::Status> urib_;
  Zan::Ptr<Routing::Multicast::Rib::Config> config_;
  Zan::Ptr<Routing::Multicast::Rib::Status> mribStatus_;
  Zan::Ptr<Routing::Multicast::Rib::MribSm> mribSm_;
};

}  // namespace host
