#pragma once

#include <functional>

#include "Routing/Multicast/Rib/Status.h"
#include "Zan/Reactor.h"

/// Keeps what it hears, by the numbers of attributes and the names of collections, and does `then` at each.
template <class Base>
class Watcher : public Base {
 public:
  using Action = std::function<void()>;

  explicit Watcher(const Zan::Ptr<Zan::PtrInterface const>& notifier, Action t = {}) : then(std::move(t)) {
    this->notifierIs(notifier);
    this->isRegisteredNotifieeIs(true);
  }
  void onNotification() override { call("change"); }
  void onAttribute(Zan::AttributeId id) override { call(std::to_string(id)); }
  void onCollectionNotification(const Zan::String8& name) override { call(name.stringValue()); }
  void handleDefault(Zan::ActivityConfig*, Zan::AttributeId, bool) override { call("leaving"); }
  void handleNotification(Zan::ActivityConfig*) override {
    if (afterwards) afterwards();
  }
  void onNotificationException(Zan::AttributeId id) override { threw("in " + std::to_string(id)); }
  void onNotificationException() override { threw("afterwards"); }
  void onZeroReferences() override { call("no references"); }
  void zan_bitSetIs(U32) override {
    if (queued) queued();
  }
  Zan::ActivitySm* actsm() override { return activity.get(); }

  Action then, afterwards, answer, queued;
  std::vector<std::string> heard;
  Zan::Ptr<Zan::ActivitySm> activity;

 private:
  void call(std::string what) {
    heard.push_back(std::move(what));
    if (const auto now = then) now();  // which may set another one, or let this go
  }
  void threw(const std::string& where) {
    heard.push_back("threw " + where);
    if (answer) answer();
  }
};

template <class Base>
Zan::Ptr<Watcher<Base>> watch(const Zan::Ptr<Zan::PtrInterface const>& notifier,
                              std::function<void()> then = {}) {
  return Zan::create<Watcher<Base>>(notifier, std::move(then));
}
using RouteWatcher = Watcher<Routing::Multicast::Rib::Route::NotifieeConst>;
inline Zan::Ptr<RouteWatcher> watchRoute(const Zan::Ptr<Zan::PtrInterface const>& route,
                                         std::function<void()> then = {}) {
  return Zan::create<RouteWatcher>(route, std::move(then));
}

/// A via by this hop, without an interface.
inline Routing::Fib::Via via(const char* hop) {
  return {Lumo::IpAddr(hop), nullptr};
}
inline void addVias(Routing::Multicast::Rib::Route& route) {
  for (const char* hop : {"1.0.0.1", "1.0.0.2", "1.0.0.3"}) route.viaIs(via(hop), true);
}
