#pragma once

#include <array>
#include <functional>
#include <memory>
#include <random>

#include "EngineWorld.h"
#include "TraceRecorder.h"
#include "plain/PlainMrib.h"

/// How the engine goes about a refresh: in whole passes with every trace, in whole passes without, with the
/// marked prefixes alone, or now so and now so, as level 8 is turned on and off. It ends in the same state.
enum class Way { traced, whole, marked, toggled };

/// Random events on an engine and on the plain model: what agents do, what careless ones do, and what anybody
/// may call by name. The model says which events would break the engine's contract; those are dropped.
class RandomEvents {
 public:
  RandomEvents(U64 seed, Way way);

  void start();
  void step();
  /// Where model and engine differ; empty when they do not.
  std::string difference();
  /// A configured prefix that is not marked although to offer it would write something; empty when there is
  /// none.
  std::string wronglyUnmarked();
  U64 traced() const { return traced_; }

 private:
  using OnModel = std::function<void(plain::PlainMrib&)>;
  using Set = Routing::Multicast::Rib::PrefixSet::Ptr;

  bool chance(U32 percent) { return random_() % 100 < percent; }
  template <class T>
  const T& pick(const std::vector<T>& pool) {
    return pool[random_() % pool.size()];
  }
  U32 intf();
  U32 mostTraced() const { return way_ == Way::marked ? 7 : 9; }
  std::string prefixText();
  Routing::Multicast::Rib::RouteResolverSm& resolver() const { return *world_.mrib->routeResolver(); }

  /// Applies an event to the model. False when the model refuses it: then the engine must not have it.
  bool allows(const std::string& event, const OnModel& onModel);
  void something(U64 kind);
  void meanwhile(U64 events);

  // Agents.
  void interfaces();
  void intfIs(U32 id);
  void addressIs(U32 id);
  void unicast(const std::string& text, bool mayDelete);
  void configure();
  bool prefixAdded(const std::string& text);
  void prefixDeleted(const std::string& text);
  void rpfAdded(const std::string& text, int preference, const plain::Rpf& rpf);
  void burst();
  // Careless ones.
  void inputReplaced(U64 which);
  void resolverReplaced();
  void inputReplacedForAWhile();
  void setAgain();
  void restart();
  void sleep();
  void zombie();
  void everyPrefixLookedAt();
  void statusWritten();
  void viaAdded(const Lumo::IpGenPrefix& prefix, U32 id);
  void setWritten();
  void operationCalled();
  void defaultPrefixSet();

  std::vector<Lumo::IpGenPrefix> tableOrder() const;
  void newEngine();
  void traceToggled();
  plain::Rpf someRpf();
  std::string state() const;
  std::string traceDifference() const;

  std::mt19937_64 random_;  // the same events in every way
  std::mt19937_64 extras_;
  Way way_;
  EngineWorld world_;
  std::array<Zan::Ptr<EngineWorld::Config>, 2> configs_;
  std::array<Zan::Ptr<Ip::Status>, 3> addresses_;
  std::array<Zan::Ptr<Interface::AllIntfStatusDir>, 3> intfs_;
  std::array<Zan::Ptr<Routing::TrieGen>, 2> tries_;
  std::vector<Set> held_;  // beside those that the model holds
  plain::PlainMrib model_;
  std::unique_ptr<TraceRecorder> recorder_;
  std::string event_;
  U64 traced_ = 0;
  int objects_ = 0;
  S32 result_ = 0;  // of the last operation that has one
};
