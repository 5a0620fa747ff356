// A small host: it tells an agent of two interfaces, their subnets and its configured multicast routes,
// follows what changes, and asks which way packets must come in.
#include <iostream>

#include "mrib/Agent.h"

namespace {

using Lumo::IpAddr;
using Lumo::IpGenAddr;
using mrib::Net;
using mrib::RouteType;

std::string text(const mrib::Agent& agent, const mrib::Route& route) {
  if (route.type == RouteType::unknown) return "none";
  std::string all;
  for (const mrib::NextHop& hop : route.nextHops) {
    const mrib::Link* link = agent.link(hop.link);
    all += (all.empty() ? "via " : ", ") + hop.address.stringValue() + " on " + (link ? link->name : "?");
  }
  return all;
}

void connect(mrib::Transaction& t, const char* subnet, U32 link) {
  const mrib::Gateway onLink{{}, link};
  t.route(Net(subnet), RouteType::connected, 0, {&onLink, 1});
}

/// What is wrong is said; then nothing has changed.
void commit(mrib::Agent& agent, mrib::Transaction& t) {
  for (const mrib::Refusal& refusal : agent.commit(t).refusals) std::cout << refusal.text << '\n';
  if (agent.mayDiffer()) agent.settle();  // at once here; when there is time for it in a larger host
  t.clear();
}

}  // namespace

int main() {
  mrib::Agent agent;
  agent.subscribe([&](const mrib::Update& update) {
    for (const mrib::Change& change : update.changes) {
      std::cout << update.generation << ": " << change.prefix() << " was " << text(agent, change.before)
                << ", is " << text(agent, change.after) << '\n';
    }
  });

  // Interfaces, connected subnets and configured routes: the last resolves through the one before.
  mrib::Transaction t;
  t.link({1, "eth0"});
  t.link({2, "eth1"});
  t.address({1, IpGenAddr("20.0.0.1")});
  t.address({2, IpGenAddr("30.0.0.1")});
  connect(t, "20.0.0.0/24", 1);
  connect(t, "30.0.0.0/24", 2);
  t.mroute(Net("10.9.0.0/16"), IpGenAddr("20.0.0.5"), 1);
  t.mroute(Net("10.9.0.0/16"), "eth1", 250);
  t.mroute(Net("10.8.0.0/16"), IpGenAddr("10.9.0.1"), 1);
  commit(agent, t);

  // The subnet of eth0 goes: the backup takes over, and what resolves through it follows.
  t.routeDel(Net("20.0.0.0/24"));
  commit(agent, t);

  // Which way must packets from 10.8.1.2 come in, and what does not resolve?
  if (const mrib::Route* route = agent.rpf(IpAddr("10.8.1.2"))) {
    std::cout << "10.8.1.2: " << route->prefix << ' ' << text(agent, *route) << '\n';
  }
  for (const mrib::Unresolved& u : agent.unresolved()) {
    std::cout << u.mroute.prefix.stringValue() << ": " << u.text() << '\n';
  }

  // Routes that could resolve through each other in a circle are refused.
  t.mroute(Net("50.0.0.0/8"), IpGenAddr("60.0.0.1"), 1, 12);
  t.mroute(Net("60.0.0.0/8"), IpGenAddr("50.0.0.1"), 1, 13);
  commit(agent, t);
}
