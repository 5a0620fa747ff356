#include <cstdlib>

#include "EngineWorld.h"
#include "Pim/MribTrieBuilder/MribTrieBuilderSm6.h"
#include "Zan/GenericIf.h"

// Reads the bytes as a sequence of reflective operations on a running engine and does them. What is not
// allowed must throw what reflection throws; nothing may crash, leak, or change through a const handle.
// Aborts when it does.

namespace {

using Zan::AttributeOp;
using Zan::GenericIf;
using Zan::Value;

/// Takes the input apart.
class Bytes {
 public:
  Bytes(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  bool empty() const { return at_ >= size_; }
  U8 next() { return at_ < size_ ? data_[at_++] : U8{0}; }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
  std::size_t at_ = 0;
};

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

Value valueFrom(Bytes& bytes, const World& world) {
  static const char* const texts[] = {"",   "10.0.0.0/8",    "20.0.0.0/24", "::/0",   "true",
                                      "7",  "addr 20.0.0.9", "intf 1",      "intf x", "1.2.3.4/32",
                                      "-1", "99999999999"};
  const U8 kind = bytes.next();
  switch (kind % 5) {
    case 0:
      return Value::of(kind % 2 == 0);
    case 1:
      return Value::of(static_cast<U32>(kind));
    case 2:
      return Value(world.handles[bytes.next() % world.handles.size()].object());
    case 3:
      return {};
    default:
      return Value::of(std::string(texts[bytes.next() % std::size(texts)]));
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

void walk(const GenericIf& handle, const Zan::IteratorPtr& iterator, Bytes& bytes) {
  auto copy = iterator->clone();
  for (U8 steps = bytes.next() % 4; steps > 0; --steps) iterator->advance();
  for (const auto& i : {iterator.get(), copy.get()}) {
    i->key().text();
    i->member().text();
    if (bytes.next() % 2 == 0 && handle.object().isConst()) i->erase();
  }
}

void step(World& world, Bytes& bytes) {
  const GenericIf& original = world.handles[bytes.next() % world.handles.size()];
  const U8 how = bytes.next();
  const GenericIf constant(Zan::Ptr<Zan::PtrInterface const>(original.object().get()));
  const Zan::AttributeId id = how % 8 == 0 ? bytes.next() * 7919u : 128u + bytes.next() % 24u;
  const auto op =
      static_cast<AttributeOp>(how % 3 == 0 ? bytes.next() : U8{128} * (how & 1) + bytes.next() % 5);
  std::vector<Value> arguments(bytes.next() % 5);
  for (Value& argument : arguments) argument = valueFrom(bytes, world);
  const bool mutating = Zan::isMutating(op);
  // What a well-formed operation does to the engine is between its caller and the engine, which may assert:
  // here they all go through a const handle, and through the other one only what reads.
  const GenericIf& handle = mutating || how & 2 ? constant : original;
  try {
    const Value result = handle.attributeOp({id, op}, arguments);
    result.text();
    if (op == AttributeOp::iterate) walk(handle, result.as<Zan::IteratorPtr>(), bytes);
    if (mutating) std::abort();  // nothing that changes may come through
  } catch (const Zan::IntrospectionException& e) {
    if (e.attribute().empty()) std::abort();  // every refusal says whose it is
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  World world;
  Bytes bytes(data, size);
  const std::string before = stateOf(world);
  while (!bytes.empty()) step(world, bytes);
  if (stateOf(world) != before) std::abort();
  return 0;
}
