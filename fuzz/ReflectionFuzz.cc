#include "EngineWorld.h"
#include "Pim/MribTrieBuilder/MribTrieBuilderSm6.h"
#include "Target.h"
#include "Zan/GenericIf.h"

// Reads the bytes as a sequence of reflective operations on a running engine and does them. What is not
// allowed must throw what reflection throws; nothing may crash, leak, or change through a const handle.
// Aborts when it does.

namespace {

using fuzz::Dice;
using fuzz::must;
using Zan::AttributeOp;
using Zan::GenericIf;
using Zan::Value;

struct World : EngineWorld {
  World() {
    intfIs(1, "eth0");
    intfAddrIs(1, "20.0.0.1");
    connectedIs("20.0.0.0/24", 1);
    rpfIs("10.0.0.0/8", 1, via("20.0.0.5"));
    rpfIs("11.0.0.0/8", 2, via("10.0.0.1"));
    start();
    handles = {
        GenericIf(mrib),
        GenericIf(mrib->routeResolver()),
        GenericIf(mrib->trieBuilder()),
        GenericIf(Routing6::Multicast::Rib::mribTrieBuilderSmFactory(status6, shadow6)),
        GenericIf(intfInfo),
        GenericIf(config),
        GenericIf(mribStatus),
        GenericIf(Zan::Ptr<Routing::Multicast::Rib::Route>(mribStatus->route(Lumo::Prefix("10.0.0.0/8")))),
        GenericIf(mrib->mribShadow()->trie())};
  }

  Zan::Ptr<Routing6::Multicast::Rib::Status> status6 = Zan::create<Routing6::Multicast::Rib::Status>("mrib6");
  Zan::Ptr<Routing6::Multicast::Shadow::Status> shadow6 =
      Zan::create<Routing6::Multicast::Shadow::Status>("shadow6");
  std::vector<GenericIf> handles;
};

Value valueFrom(Dice& dice, const World& world) {
  static const char* const texts[] = {"",   "10.0.0.0/8",    "20.0.0.0/24", "::/0",   "true",
                                      "7",  "addr 20.0.0.9", "intf 1",      "intf x", "1.2.3.4/32",
                                      "-1", "99999999999"};
  const U64 kind = dice();
  switch (kind % 5) {
    case 0:
      return Value::of(kind % 2 == 0);
    case 1:
      return Value::of(static_cast<U32>(kind));
    case 2:
      return Value(world.handles[dice() % world.handles.size()].object());
    case 3:
      return {};
    default:
      return Value::of(std::string(texts[dice() % std::size(texts)]));
  }
}

/// Everything that a const handle must leave alone.
std::string stateOf(const World& world) {
  std::string state;
  for (const GenericIf& handle : world.handles) {
    for (const Zan::AttributeRow& row : handle.type()->table->rows) {
      if (row.get) state += handle.attributeOp({row.id, AttributeOp::read}).text() + ' ';
      if (row.count) state += handle.attributeOp({row.id, AttributeOp::count}).text() + ' ';
    }
  }
  return state + world.show("10.0.0.0/8") + world.show("11.0.0.0/8");
}

void walk(const GenericIf& handle, const Zan::IteratorPtr& iterator, Dice& dice) {
  auto copy = iterator->clone();
  for (U64 steps = dice() % 4; steps > 0; --steps) iterator->advance();
  for (const auto& i : {iterator.get(), copy.get()}) {
    i->key().text();
    i->member().text();
    if (dice() % 2 == 0 && handle.object().isConst()) i->erase();
  }
}

void step(World& world, Dice& dice) {
  const GenericIf& original = world.handles[dice() % world.handles.size()];
  const U64 how = dice();
  const GenericIf constant(Zan::Ptr<Zan::PtrInterface const>(original.object().get()));
  const Zan::AttributeId id = static_cast<Zan::AttributeId>(how % 8 == 0 ? dice() * 7919 : 128 + dice() % 24);
  const auto op = static_cast<AttributeOp>(how % 3 == 0 ? dice() : 128 * (how & 1) + dice() % 5);
  std::vector<Value> arguments(dice() % 5);
  for (Value& argument : arguments) argument = valueFrom(dice, world);
  const bool mutating = Zan::isMutating(op);
  // What a well-formed operation does to the engine is between its caller and the engine, which may assert:
  // here they all go through a const handle, and through the other one only what reads.
  const GenericIf& handle = mutating || how & 2 ? constant : original;
  try {
    const Value result = handle.attributeOp({id, op}, arguments);
    result.text();
    if (op == AttributeOp::iterate) walk(handle, result.as<Zan::IteratorPtr>(), dice);
    must(!mutating);  // nothing that changes may come through
  } catch (const Zan::IntrospectionException& e) {
    must(!e.attribute().empty());  // every refusal says whose it is
  }
}

/// One world serves all inputs, since none may change it.
void run(fuzz::Bytes bytes) {
  static World world;
  static const std::string before = stateOf(world);
  Dice dice(bytes);
  while (!dice.isOver()) step(world, dice);
  must(stateOf(world) == before);
}

const fuzz::Target target("reflection", run);

}  // namespace
