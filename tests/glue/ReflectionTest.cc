#include <gtest/gtest.h>

#include "EngineWorld.h"
#include "Pim/MribSm/ConfigReactors.h"
#include "Pim/MribTrieBuilder/MribTrieBuilderSm6.h"
#include "Refusal.h"
#include "TraceRecorder.h"
#include "Zan/IntrospectionReactor.h"

namespace {

using Lumo::IpGenPrefix;
using Routing::Multicast::Rib::Rpf;
using Zan::AttributeOp;
using Zan::GenericIf;
using Zan::NamedArgument;
using Zan::Value;

/// A running engine with one connected and one configured route, and handles on its state machines.
struct Reflection : testing::Test {
  Reflection() {
    world.intfIs(1, "eth0");
    world.intfAddrIs(1, "20.0.0.1");
    world.connectedIs("20.0.0.0/24", 1);
    world.rpfIs("10.0.0.0/8", 1, EngineWorld::via("20.0.0.5"));
    world.start();
    sm = GenericIf(world.mrib);
    resolver = GenericIf(world.mrib->routeResolver());
    builder = GenericIf(world.mrib->trieBuilder());
    builder6 = GenericIf(Routing6::Multicast::Rib::mribTrieBuilderSmFactory(status6, shadow6));
    info = GenericIf(world.intfInfo);
  }
  std::vector<GenericIf> machines() const { return {sm, resolver, builder, builder6, info}; }
  /// The same object, read only.
  static GenericIf asConst(const GenericIf& handle) {
    return GenericIf(Zan::Ptr<Zan::PtrInterface const>(handle.object().get()));
  }

  EngineWorld world;
  Zan::Ptr<Routing6::Multicast::Rib::Status> status6 = Zan::create<Routing6::Multicast::Rib::Status>("mrib6");
  Zan::Ptr<Routing6::Multicast::Shadow::Status> shadow6 =
      Zan::create<Routing6::Multicast::Shadow::Status>("shadow6");
  GenericIf sm, resolver, builder, builder6, info;
};

Value text(const char* t) {
  return Value::of(std::string(t));
}

/// Does something that must be refused, and gives its text, which is of its type alone, subject and
/// attribute.
template <class Action>
std::string thrown(Action action) {
  try {
    action();
  } catch (const Zan::IntrospectionException& e) {
    return std::string(e.what()) + " | " + e.subject() + " | " + e.attribute();
  }
  return "nothing";
}

/// The first, some in between and the last: they are numbered in order, so that no other one is amiss.
TEST(Registration, GivesAttributesTheirIdentifiersAndCollectionsAnIndex) {
  const auto& registry = Zan::Introspection::instance();
  const std::tuple<const char*, const char*, U32> ids[] = {{"InterfaceInfo", "ipStatus", 130},
                                                           {"InterfaceInfo", "config", 131},
                                                           {"InterfaceInfo", "status", 132},
                                                           {"RouteResolverSm", "mribForPrefix", 136},
                                                           {"RouteResolverSm", "doAddWatchPrefix", 141},
                                                           {"RouteResolverSm", "doRecursiveUpdate", 145},
                                                           {"MribTrieBuilderSm", "status", 130},
                                                           {"MribTrieBuilderSm", "zanDoZombieReactors", 140}};
  for (const auto& [type, name, id] : ids)
    EXPECT_EQ(registry.attribute(std::string("Routing::Multicast::Rib::") + type, name)->id(), id) << name;
  for (const auto& type : registry.types()) {
    for (const auto& attribute : type->attributes) {
      EXPECT_EQ(attribute->index() != nullptr,
                attribute->flags().has(Zan::ZanAttrIntrospectionFlags::collection))
          << type->table->name << ' ' << attribute->name();
    }
  }
  const auto sets = registry.attribute("Routing::Multicast::Rib::RouteResolverSm", "mribForPrefix");
  EXPECT_EQ(sets->index()->name(), "lPrefix");
  EXPECT_EQ(refusal([] { const Zan::ZanAttrIntrospectionFlags flags(0x40); }),
            "ZanAttrIntrospectionFlags::value > 0x3f not allowed");
}

/// Walks every object that can be reached, and compares the tables with what the records say of themselves.
TEST_F(Reflection, ReachesEveryObjectAndAgreesWithItsOwnNames) {
  std::vector<GenericIf> todo = machines();
  for (const auto& input : {GenericIf(world.config), GenericIf(world.mribStatus), GenericIf(world.urib)}) {
    todo.push_back(input);
  }
  std::set<const Zan::PtrInterface*> seen;
  std::set<std::string_view> types;
  const auto visit = [&](const Value& value) {
    if (value.isObject() && value.object()) todo.emplace_back(value.object());
  };
  while (!todo.empty()) {
    const GenericIf handle = todo.back();
    todo.pop_back();
    if (!seen.insert(handle.object().get()).second) continue;
    const auto* type = handle.type();
    ASSERT_NE(type, nullptr);
    EXPECT_EQ(type->table->name, handle.object().get()->fwkType()->name())
        << "each class has a table of its own";
    types.insert(type->table->name);
    if (const auto* entity = dynamic_cast<const Zan::Entity*>(handle.object().get())) {
      for (Zan::AttributeId id = 130; id < 140; ++id) {
        const auto* row = type->row(id);
        const std::string_view own = entity->attributeName(id);
        // The MRIB status only announces its trie: it holds none.
        if (own.empty() || (own == "trie" && type->table->name.ends_with("Rib::Status"))) continue;
        ASSERT_TRUE(row) << type->table->name << " does not register " << own;
        EXPECT_EQ(row->name, own);
      }
    }
    for (const Zan::AttributeRow& row : type->table->rows) {
      if (row.get) {
        const Value value = handle.attributeOp({row.id, AttributeOp::read});
        EXPECT_TRUE(value.isObject() ? !value.object() || value.object().get()->fwkType()
                                     : value.typeName() == row.type)
            << row.name << " is a " << value.typeName();
        visit(value);
      }
      if (!row.iterate) continue;
      U32 members = 0;
      for (auto i = handle.iterator(row.id); i->nonNull(); i->advance(), ++members) {
        visit(i->member());
        const Value key = i->key();
        EXPECT_EQ(key.typeName(), row.index.type) << row.name;
        if (row.at) visit(handle.attributeOp({row.id, AttributeOp::readAt}, Zan::Arguments(&key, 1)));
      }
      EXPECT_EQ(handle.attributeOp({row.id, AttributeOp::count}).as<U32>(), members) << row.name;
    }
  }
  EXPECT_GE(types.size(), 20u);
}

TEST_F(Reflection, SetsWhatTheAccessorsDo) {
  builder.set("trieUpdates", text("77"));
  builder.set("deletedPreference", Value::of(U8{9}));
  EXPECT_EQ(world.mrib->trieBuilder()->trieUpdates(), 77u);
  EXPECT_EQ(world.mrib->trieBuilder()->deletedPreference(), 9);
  info.set("status", Value(Zan::Ptr<Interface::AllIntfStatusDir>()));
  EXPECT_EQ(world.mrib->intfStatus(), nullptr);
  info.set("config", Value(Zan::create<Interface::AllIntfConfigDir>("config")));
  EXPECT_EQ(sm.read("intfConfig").object().get(), info.read("config").object().get());
  const auto set = Routing::Multicast::Rib::PrefixSet::PrefixSetIs(IpGenPrefix("9.0.0.0/8"));
  resolver.set("mribForPrefix", Value(set));
  EXPECT_EQ(resolver.read("mribForPrefix", text("9.0.0.0/8")).object().get(), set.get());
  EXPECT_FALSE(resolver.read("mribForPrefix", text("9.9.9.0/24")).object());
  EXPECT_THROW(resolver.set("mribForPrefix", Value(Routing::Multicast::Rib::PrefixSet::Ptr())),
               Zan::RangeException);
}

TEST_F(Reflection, InvokesOperationsAndMutatorsByTheNamesOfTheirArguments) {
  const std::vector<NamedArgument> route{
      {"pref", text("3")}, {"rpf", text("addr 20.0.0.9")}, {"p", text("60.0.0.0/8")}};
  EXPECT_EQ(resolver.call("doAddOrUpdateRoute", route).as<S32>(), 0);
  EXPECT_EQ(world.show("60.0.0.0/8"), "60.0.0.0/8 p3 t4 [20.0.0.9 on eth0]");
  resolver.call("doDelRoute", {{"", text("60.0.0.0/8")}});
  EXPECT_EQ(world.show("60.0.0.0/8"), "none");
  resolver.call("doRecursiveUpdate", {{"pset", Value(Zan::Ptr<Routing::Multicast::Rib::PrefixSet>())}});
  const U32 updates = builder6.read("trieUpdates").as<U32>();
  builder6.call("handleRoute", {{"prefix", text("2001:db8::/32")}});
  EXPECT_EQ(builder6.read("trieUpdates").as<U32>(), updates + 1) << "the form with an argument";
  const auto sameInputs = sm.call("routeResolver", {{"allIntfStatusDir", sm.read("allIntfStatusDir")},
                                                    {"uribStatus", sm.read("uribShadowStatus")},
                                                    {"mribStatus", sm.read("mribStatus")}});
  EXPECT_EQ(sameInputs.object().get(), resolver.object().get());
}

TEST_F(Reflection, InitializedSilencesBothHandlersOfTheResolver) {
  resolver.set("initialized", Value::of(true));
  const TraceRecorder recorder;
  world.connectedIs("30.0.0.0/24", 1);
  EXPECT_EQ(world.show("30.0.0.0/24"), "none");
  EXPECT_TRUE(recorder.messages.empty());
  resolver.call("handleInitialize");
  EXPECT_EQ(recorder.messages.size(), 1u) << "its entry, and no more";
  EXPECT_EQ(world.show("30.0.0.0/24"), "none");
}

/// That each attribute refuses what it must is fuzzed: here is what is said of it, once a kind.
TEST_F(Reflection, EveryFailureNamesWhatItIsAbout) {
  using Op = AttributeOp;
  const std::string badIndex = "bad index for attribute",
                    unsupported = "operation not supported by attribute";
  const Value number = Value::of(12.5), one = text("1");
  const struct {
    GenericIf machine;
    const char* attribute;
    Op op;
    std::vector<Value> arguments;
    std::string what;
    std::string subject{};  // where it is not the attribute
  } cases[] = {
      {builder, "trieUpdates", Op::read, {one}, badIndex},
      {builder, "trieUpdates", Op::readAt, {one}, badIndex},
      {builder, "trieUpdates", Op::iterate, {}, unsupported},
      {builder, "trieUpdates", Op::invoke, {}, unsupported},
      {builder, "trieUpdates", Op(132), {}, unsupported},
      {builder6, "handleRoute", Op::invoke, {one, one}, "unknown argument \"#2\" of", "#2"},
      {sm, "routeResolver", Op::set, {one}, "missing argument \"mribStatus\" of", "mribStatus"},
      {builder, "trie", Op(127), {}, unsupported},
      {sm, "mribStatus", Op::set, {one}, unsupported},
      {builder, "trieUpdates", Op::set, {}, "missing argument \"value\" of", "value"},
      {builder, "trieUpdates", Op::set, {text("x")}, "expected a value of type U32, found \"x\" for", "U32"},
      {info,
       "status",
       Op::set,
       {one},
       "expected a value of type Interface::AllIntfStatusDir, found text for",
       "Interface::AllIntfStatusDir"},
      {resolver, "mribForPrefix", Op::read, {}, badIndex},
      {resolver, "mribForPrefix", Op::readAt, {text("no key")}, badIndex},
      {resolver, "mribForPrefix", Op::erase, {number}, badIndex},
      {resolver, "mribForPrefix", Op::readAt, {one, one}, "unknown argument \"#2\" of", "#2"},
      {resolver, "doDelRoute", Op::invoke, {}, "missing argument \"p\" of", "p"},
      {resolver, "doDelRoute", Op::invoke, {one, one}, "unknown argument \"#2\" of", "#2"},
      {resolver,
       "doDelRoute",
       Op::invoke,
       {number},
       "expected a value of type Lumo::IpGenPrefix, found double for",
       "Lumo::IpGenPrefix"},
  };
  for (const auto& [machine, name, op, arguments, what, subject] : cases) {
    const std::string of(name);
    EXPECT_EQ(thrown([&, operation = op, given = arguments, &m = machine] {
                m.attributeOp({m.attributeId(of), operation}, given);
              }),
              what + " \"" + of + "\" | " + (subject.empty() ? of : subject) + " | " + of);
  }
  EXPECT_EQ(thrown([&] {
              resolver.call("doDelRoute", {{"bogus", one}});
            }),
            "unknown argument \"bogus\" of \"doDelRoute\" | bogus | doDelRoute");
  EXPECT_EQ(thrown([&] { sm.read("bogus"); }),
            "no attribute \"bogus\" in Routing::Multicast::Rib::MribSm | bogus | bogus");
  EXPECT_EQ(thrown([] { GenericIf().read("bogus"); }), "no attribute \"bogus\" in null | bogus | bogus");
  EXPECT_EQ(thrown([&] { asConst(resolver).call("doDelRoute"); }),
            "attempting to modify a const instance | doDelRoute | doDelRoute");
  for (const auto& [id, name] : {std::pair(9999u, "#9999"), {Zan::isZombieId, "isZombie"}}) {
    EXPECT_EQ(thrown([&, attribute = id] {
                asConst(sm).attributeOp({attribute, Op::set});
              }),
              std::string("attempting to modify a const instance | ") + name + " | " + name)
        << "refused before it is looked for, and by the base type's name for it";
  }
}

TEST_F(Reflection, WhatIsReachedThroughAConstHandleIsConst) {
  const GenericIf readOnly = asConst(sm);
  const GenericIf child(readOnly.read("routeResolver").object());
  EXPECT_THROW(child.set("initialized", Value::of(true)), Zan::ConstInstanceException);
  const GenericIf status(readOnly.read("mribStatus").object());
  const GenericIf route(status.read("route", text("10.0.0.0/8")).object());
  EXPECT_THROW(route.set("preference", Value::of(U8{9})), Zan::ConstInstanceException);
  EXPECT_EQ(
      thrown([&] { resolver.set("mribStatus", readOnly.read("mribStatus")); }),
      "expected a value of type Routing::Multicast::Rib::Status, found const "
      "Routing::Multicast::Rib::Status for \"mribStatus\" | Routing::Multicast::Rib::Status | mribStatus");
  GenericIf(sm.read("routeResolver").object()).set("initialized", Value::of(true));
  EXPECT_TRUE(world.mrib->routeResolver()->initialized());
}

TEST_F(Reflection, IteratesAllCollectionsAlike) {
  world.rpfIs("50.0.0.0/8", 1, EngineWorld::via("8.0.0.1"));
  const auto route = world.mribStatus->routeIs(Lumo::Prefix("60.0.0.0/8"));
  for (const char* address : {"8.0.0.1", "8.0.0.2"}) route->viaIs({Lumo::IpAddr(address), nullptr}, true);
  const GenericIf onRoute{Zan::Ptr<Routing::Multicast::Rib::Route>(route)};
  const std::pair<GenericIf, const char*> collections[] = {{onRoute, "via"}, {sm, "mribConfigPrefix"}};
  for (const auto& [owner, name] : collections) {
    const Zan::AttributeId id = owner.attributeId(name);
    const auto i = owner.attributeOp({id, AttributeOp::iterate}).as<Zan::IteratorPtr>();
    const auto copy = i->clone();
    const auto next = i->clone();
    next->advance();
    const std::string second = next->key().text();
    i->erase();
    for (const auto* gone : {i.get(), copy.get()}) {
      EXPECT_FALSE(gone->nonNull()) << name;
      EXPECT_TRUE(gone->key().isNothing() && gone->member().isNothing()) << name;
    }
    EXPECT_EQ(owner.attributeOp({id, AttributeOp::count}).as<U32>(), 1u) << name;
    i->erase();
    EXPECT_EQ(owner.attributeOp({id, AttributeOp::count}).as<U32>(), 1u) << "null deletes nothing";
    i->advance();
    copy->advance();
    EXPECT_EQ(i->key().text(), second) << name;
    EXPECT_EQ(copy->key().text(), second) << name;
    const auto constant = asConst(owner).iterator(id);
    EXPECT_EQ(thrown([&] { constant->erase(); }),
              "attempting to modify a const instance | " + std::string(name) + " | " + name);
    EXPECT_EQ(constant->member().isObject(), constant->member().object().isConst()) << name;
    owner.attributeOp({id, AttributeOp::eraseAll});
    EXPECT_EQ(owner.attributeOp({id, AttributeOp::count}).as<U32>(), 0u) << name;
  }
}

TEST_F(Reflection, HearsTheChangesOfObjectsWithoutKnowingTheirClass) {
  std::string heard;
  const auto listen = [&](const GenericIf& object) {
    return Zan::IntrospectionReactor::on(object, [&](std::string_view name) { (heard += name) += ' '; });
  };
  const auto route = world.mribStatus->route(Lumo::Prefix("10.0.0.0/8"));
  const auto onRoute = listen(GenericIf(Zan::Ptr<Routing::Multicast::Rib::Route>(route)));
  const auto onStatus = listen(GenericIf(world.mribStatus));
  world.rpfIs("10.0.0.0/8", 1, EngineWorld::via("20.0.0.7"));
  route->metricIs(5);
  world.rpfIs("11.0.0.0/8", 1, EngineWorld::via("20.0.0.7"));
  EXPECT_EQ(heard, "via metric route ");
  EXPECT_EQ(listen(sm), nullptr) << "a state machine has no notifiees";
}

TEST_F(Reflection, CallsTheFactoriesByName) {
  const Value made =
      Zan::callFactory("Routing6::Multicast::Rib::mribTrieBuilderSmFactory",
                       {{"mribRouteStatus", Value(Zan::create<Routing6::Multicast::Shadow::Status>("other"))},
                        {"status", Value(status6)}});
  EXPECT_EQ(GenericIf(made.object()).read("status").object().get(), status6.get());
  const std::string of4 = "Routing::Multicast::Rib::mribTrieBuilderSmFactory";
  EXPECT_EQ(thrown([&] { Zan::callFactory(of4); }),
            "missing argument \"status\" of \"" + of4 + "\" | status | " + of4);
}

}  // namespace
