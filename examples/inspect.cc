// A tool that knows no class: it reads, sets, walks and calls by the names that the types have registered.
#include <iostream>

#include "Pim/MribSm/MribSm.h"
#include "Routing/ValueTraits.h"
#include "Zan/GenericIf.h"

namespace {

using Zan::AttributeOp;
using Zan::GenericIf;
using Zan::Value;

// What is asked for often is looked up by name once.
const Zan::AttributeHandle via("Routing::Multicast::Rib::Route", "via");

}  // namespace

int main() {
  using namespace Routing::Multicast::Rib;
  using Lumo::IpAddr, Lumo::IpGenPrefix, Lumo::Prefix;

  auto mribStatus = Zan::create<Status>("mrib");
  auto intfs = Zan::create<Interface::AllIntfStatusDir>("intfStatus");
  auto mrib = mribSmFactory(nullptr, nullptr, Zan::create<Config>("config"), mribStatus, intfs);
  const auto route = mribStatus->routeIs(Prefix("20.0.0.0/24"));
  const GenericIf connected(Zan::Ptr<Route>{route});
  connected.set("routeType", Value::of(Routing::Fib::RouteType::connected));
  route->viaIs({IpAddr("20.0.0.1"), intfs->intfStatusIs(Lumo::IntfId(7), "eth0")}, true);

  // Values go in and come out as what they are; a text is read as one too.
  const GenericIf engine(mrib);
  const GenericIf status(engine.read("mribStatus").object());
  const GenericIf found(status.read("route", Value::of(Prefix("20.0.0.0/24"))).object());
  const auto type = found.read("routeType").as<Routing::Fib::RouteType>();
  const auto first = found.attributeOp({via->id(), AttributeOp::iterate}).as<Zan::IteratorPtr>();
  const auto next = first->member().as<Routing::Fib::Via>();
  std::cout << found.read("prefix").as<Prefix>() << ' ' << type << " via " << next.hop << " on "
            << next.intfStatus->intfId() << '\n';

  const GenericIf trie(GenericIf(engine.read("mribShadow").object()).read("trie").object());
  const Value match = trie.call("longestMatch", {{"prefix", Value::of(IpGenPrefix("20.0.0.9/32"))}});
  std::cout << "20.0.0.9 is in " << match.as<IpGenPrefix>() << '\n';

  // What can't be done is refused by name.
  try {
    const GenericIf resolver(engine.read("routeResolver").object());
    const auto rpf = Rpf::ofAddr(Lumo::IpGenAddr("20.0.0.5"));
    resolver.call("doDelRpf", {{"rpf", Value::of(rpf)}, {"p", Value::of(Lumo::IntfId(7))}});
  } catch (const Zan::TypeException& e) {
    std::cout << e.attribute() << " wants a " << e.subject() << ", not a " << e.found() << '\n';
  }
}
