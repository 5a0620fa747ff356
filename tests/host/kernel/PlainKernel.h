#pragma once

#include "Mirror.h"

/// A kernel that has what a test says.
struct PlainKernel {
  /// What it answers, at once, to what the mirror wants to be done.
  void answer(host::kernel::Mirror& mirror, const host::kernel::Mirror::Action& action,
              host::Nanos now) const {
    using namespace host::kernel;
    const auto say = [&](auto body) { mirror.answered({action.sequence, 0, std::move(body)}, now); };
    if (action.dump == Dump::links) {
      for (const Link& link : links) say(LinkChange{link});
    } else if (action.dump == Dump::addresses) {
      for (const Address& address : addresses) say(AddressChange{address});
    } else if (action.dump == Dump::routes4) {
      for (const Route& route : routes) say(RouteChange{route});
    }
    say(DumpEnd{});
  }

  std::vector<host::kernel::Link> links{};
  std::vector<host::kernel::Address> addresses{};
  std::vector<host::kernel::Route> routes{};
};
