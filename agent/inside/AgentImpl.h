#pragma once

#include <deque>

#include "inside/EngineRun.h"
#include "inside/Mroutes.h"
#include "inside/RouteTable.h"
#include "mrib/Agent.h"

namespace mrib {

/// The inputs, the engine that runs on them, and the MRIB as it was last published.
class Agent::Impl {
 public:
  explicit Impl(const Options& options);

  /// Whether a commit or a settling has failed half way, for want of memory: what is published stands as it
  /// was before, and nothing else is to be relied on.
  bool isHalf() const { return !run && !busy; }
  /// An agent that is told all that this one was told before it failed, with what is published by this one.
  std::unique_ptr<Impl> madeAnew();

  // Commit.cc
  CommitResult commit(const Transaction& t);
  // Settle.cc
  SettleResult settle();
  // Unresolved.cc
  std::vector<Mroute> mroutes() const;
  std::vector<Unresolved> unresolved() const;
  std::vector<Resolution> resolutions(const Lumo::Prefix& prefix) const;
  std::vector<Mroute> circle(const Mroute& heldBack) const;

  Options options;
  Interfaces interfaces;
  Unicast unicast;
  Mroutes config;
  std::unique_ptr<EngineRun> run;
  RouteTable published;
  U64 generation = 0;
  U64 healed = 0;
  bool mayDiffer = false;
  bool isAhead = false;  // the engine, of what is published: it was made anew while that might differ

  struct Subscription {
    U64 id;
    Listener listener;
  };
  std::deque<Subscription> subscriptions;  // with number 0: it has unsubscribed while listeners were told
  U64 lastSubscription = 0;
  bool busy = false;
  bool telling = false;

 private:
  /// While it lives, a commit or a settling is under way, or listeners are told.
  class Busy {
   public:
    explicit Busy(bool& busy) : busy_(busy) { busy_ = true; }
    ~Busy() { busy_ = false; }
    Busy(const Busy&) = delete;
    Busy& operator=(const Busy&) = delete;

   private:
    bool& busy_;
  };
  /// A transaction on its way, and what it takes the place of, to which the configuration adds its own.
  struct Plan {
    const Transaction& t;
    Interfaces::Staged links;
    std::vector<Unicast::Move> moves{};
    Transaction before{};
    bool begun = false;  // all of that is there, and the inputs are being changed
  };

  void carryOut(Plan& plan, CommitResult& result);
  void failed(std::vector<Change>& changes, std::unique_ptr<Plan> plan);
  Transaction toldBefore() const;
  std::vector<Refusal> stage(Plan& plan);
  void stageNames(const Interfaces::Staged& links);
  bool isRebuild(const Plan& plan) const;
  void rebuild(const Plan& plan);
  void follow(const Plan& plan, const std::vector<Lumo::Prefix>& changed);
  void restoreConnected();
  std::unique_ptr<EngineRun> freshRun();
  std::span<const EngineRun::Offer> offersOf(const Mroutes::Node* node);

  void publishTouched(std::vector<Change>& changes);
  void publishAll(std::vector<Change>& changes);
  void publish(const Lumo::Prefix& prefix, const EngineRun::EngineRoute* now, std::vector<Change>& changes);
  void unpublish(std::vector<Change>& changes);
  void tell(const Update& update);

  // Unresolved.cc
  using Probe = EngineRun::Resolver::Probe;
  Probe probe(const Lumo::Prefix& prefix, const Line& line) const;
  const Route* configured(const Mroutes::Node& node) const;
  std::optional<Unresolved> unresolvedOf(const Lumo::Prefix& prefix, const Line& line,
                                         const Route* installed) const;
  Unresolved faultOf(const Lumo::Prefix& prefix, const Line& line, const Probe& probed,
                     const Route* installed) const;
  Resolution resolutionOf(const Lumo::Prefix& prefix, const Line& line, const Route* installed) const;
  const Link* linkOf(const Line& line) const;

  // Rightness.cc
  bool isRight(const std::vector<Lumo::Prefix>& changed);
  bool isRightWithUsers(const Lumo::Prefix& prefix);
  bool isRight(const Lumo::Prefix& prefix);
  bool isRightOnce(const Lumo::Prefix& prefix);

  std::unique_ptr<Plan> halfDone_;  // the commit that failed, if it was one
  std::vector<EngineRun::Offer> offers_;
  std::vector<Routing::Fib::Via> vias_;
  std::vector<U32> judged_;  // by place in the configuration: the round in which it was
  U32 round_ = 0;
};

/// The RPF that a line is to the engine; nothing for one that it is not offered.
std::optional<EngineRun::Rpf> rpfOf(const Mroutes& config, const Line& line);

/// What is published of one of the engine's ways.
NextHop nextHopOf(const Routing::Fib::Via& via);

}  // namespace mrib
