#pragma once

#include <deque>
#include <map>
#include <memory>
#include <random>

#include "Mirror.h"

/// A kernel in miniature, with Linux's manners: routes to one prefix in an order that flags decide, links
/// that take routes along in silence, next-hop objects that go with their link, dumps that are not one
/// moment, and messages that arrive when the caller says so.
class SimulatedKernel {
 public:
  explicit SimulatedKernel(U32 seed);

  /// Changes something at random; its event waits in `events`. Without `silence`, only routes change.
  void change(bool silence);
  void startDump(host::kernel::Dump dump, U32 sequence);
  /// The next part of the dump that runs, made of the present state; waits in `answers`.
  void dumpPart();

  bool replaces = true;  // routes, too
  std::deque<host::kernel::Event> events;
  std::deque<host::kernel::Event> answers;

  /// A mirror that reads this kernel at rest.
  std::unique_ptr<host::kernel::Mirror> mirrored();
  U32 pick(U32 count) { return static_cast<U32>(random_()) % count; }

 private:
  using Route = host::kernel::Route;
  using Hop = host::kernel::Hop;
  template <class Body>
  void tell(Body body, U16 flags = 0) {
    events.push_back({0, flags, std::move(body)});
  }
  Hop hop();
  Route route();
  void addRoute();
  void deleteRoute();
  void toggleLink();
  void changeNextHop();
  void eraseNextHop(U32 id);
  template <class F>
  void eraseRoutesIf(F matches);

  std::minstd_rand random_;
  std::map<U32, host::kernel::Link> links_;
  std::map<U32, host::kernel::NextHop> nextHops_;
  std::map<host::kernel::IpGenPrefix, std::vector<Route>> routes_;

  host::kernel::Dump dump_{};
  U32 sequence_ = 0;
  bool dumping_ = false;
  host::kernel::IpGenPrefix from_;
};
