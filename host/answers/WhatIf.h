#pragma once

#include <memory>

#include "ChangeWords.h"
#include "Router.h"

namespace host {

/// A flow of packets that the kernel forwards.
struct Flow {
  Lumo::IpAddr source{};
  Lumo::IpAddr group{};
  U32 link = 0;  ///< that its packets come in by
};

/// What some changes of the kernel's state and of the configuration would come to, found out with a mirror
/// and a router of its own. Valid until the router in question changes.
class WhatIf {
 public:
  struct Setting {
    kernel::LinkSwitch isOn;
    std::vector<Flow> flows;
    std::size_t mostUnicast = 10000;  ///< prefixes over the links in question that are looked at
  };
  /// A route of the MRIB, null where there is none.
  struct RouteChange {
    const mrib::Route* before;
    const mrib::Route* after;
  };
  struct FlowChange {
    enum class Verdict : U8 {
      dies,     ///< there is no way to its source any more
      moves,    ///< its packets would have to come in by another link
      recovers  ///< they come in by the right one, and did not
    };
    Flow flow;
    Verdict verdict;
    RpfAnswer before;
    RpfAnswer after;
  };

  /// Throws Error for what cannot be done to this state, naming the change.
  WhatIf(const Router& router, std::span<const std::string> changes, const Setting& setting);
  /// With the link of this name down.
  WhatIf(const Router& router, const std::string& link, const Setting& setting);
  WhatIf(const WhatIf&) = delete;
  WhatIf& operator=(const WhatIf&) = delete;

  const Router& router() const { return *after_; }
  const std::vector<RouteChange>& changes() const { return changes_; }
  /// Prefixes with another answer of the unicast table.
  const std::vector<Lumo::Prefix>& unicast() const { return unicast_; }
  /// How many more prefixes over the links in question were not looked at.
  std::size_t unicastLeft() const { return unicastLeft_; }
  /// Configured routes that were in force or not there, or waited for better ones.
  const std::vector<mrib::Unresolved>& unresolved() const { return unresolved_; }
  /// Those that are no such errors any more, though still configured.
  const std::vector<mrib::Unresolved>& resolved() const { return resolved_; }
  const std::vector<FlowChange>& flows() const { return flows_; }

 private:
  /// Does something to the change of this number; what goes wrong names it.
  using Named = std::function<void(std::size_t, const std::function<void()>&)>;
  void imagine(std::span<const ImaginedChange> changes, const Named& named);
  void take(const ImaginedChange& change, kernel::ImaginedKernel& kernel);
  void apply(const ImaginedChange& change, kernel::ImaginedKernel& kernel);
  void configure(const std::string& command, const kernel::ImaginedKernel& kernel);
  void start(const kernel::ImaginedKernel& kernel);
  void compareRoutes();
  void compareUnicast(std::vector<Lumo::Prefix> prefixes);
  void compareUnresolved();
  void compareFlows();

  const Router& before_;
  const Setting& setting_;
  Configuration configuration_;
  std::unique_ptr<kernel::Mirror> mirror_;
  std::unique_ptr<Router> after_;
  std::vector<RouteChange> changes_;
  std::vector<Lumo::Prefix> unicast_;
  std::size_t unicastLeft_ = 0;
  std::vector<mrib::Unresolved> unresolved_;
  std::vector<mrib::Unresolved> resolved_;
  std::vector<FlowChange> flows_;
};

}  // namespace host
