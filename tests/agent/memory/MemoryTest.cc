#include <gtest/gtest.h>

#include <set>
#include <sstream>

#include "OutOfMemory.h"
#include "Quarn/Fib/RouteStatus.h"
#include "Routing/Multicast/Rib/Config.h"
#include "Routing/PrefixTrie.h"
#include "Zan/Exception.h"
#include "Zan/SortedSet.h"
#include "mrib/Agent.h"

// Memory that runs out at the first allocation of an operation, at the second, and so on: the operation
// throws, all is as before or as afterwards, nothing is lost, and the next operation works.

namespace {

using Lumo::IpAddr;
using Lumo::IpGenAddr;
using Lumo::Prefix;
using mrib::Net;

/// Whether an operation was stopped, with memory for so many allocations.
template <class F>
bool fails(long allocations, F operation) {
  memory_left(allocations);
  try {
    operation();
    memory_left(-1);
    return false;
  } catch (const std::bad_alloc&) {
  } catch (const Zan::Exception&) {  // of a shared-memory table
  }
  memory_left(-1);
  return true;
}

// ---- Collections ----

template <class Has, class Add, class Drop>
void addAndDrop(U32 count, Has has, Add add, Drop drop) {
  for (const bool adds : {true, false}) {
    for (U32 i = 0; i < count; ++i) {
      for (long n = 0; fails(n, [&] { adds ? add(i) : drop(i); }); ++n) {
        ASSERT_TRUE(adds) << "what goes needs no memory";
        ASSERT_FALSE(has(i));
        ASSERT_TRUE(i == 0 || (has(i - 1) && has(i / 2)));
      }
      ASSERT_EQ(has(i), adds);
      ASSERT_TRUE(i + 1 == count || has(count - 1) != adds);
    }
  }
}

Prefix prefixOf(U32 i) {
  return {IpAddr::fromHost(100u << 24 | (i * 40503u & 0xFFFF) << 8), 24};
}

TEST(Memory, CollectionsAddNothingOrTheWhole) {
  Routing::PrefixTrie trie;
  const auto key = [](U32 i) { return Routing::TrieKey{U64{prefixOf(i).address().host()} << 32, 0}; };
  addAndDrop(
      3000, [&](U32 i) { return trie.contains(key(i), 24); }, [&](U32 i) { trie.insert(key(i), 24); },
      [&](U32 i) { trie.remove(key(i), 24); });
  Zan::SortedSet<U32> set;
  addAndDrop(
      3000, [&](U32 i) { return set.contains(i * 2654435761u); }, [&](U32 i) { set.insert(i * 2654435761u); },
      [&](U32 i) { set.erase(i * 2654435761u); });
  const auto config = Zan::create<Routing::Multicast::Rib::Config>("config");
  addAndDrop(
      3000, [&](U32 i) { return config->route(prefixOf(i)) != nullptr; },
      [&](U32 i) { config->routeIs(Lumo::IpGenPrefix(prefixOf(i))); },
      [&](U32 i) { config->routeDel(prefixOf(i)); });
  Quarn::Fib::RouteStatusWriter table;
  const auto has = [&](U32 i) { return Quarn::Fib::RouteStatus(table.fd()).route(prefixOf(i)).has_value(); };
  addAndDrop(
      200, has,
      [&](U32 i) {
        table.routeIs({prefixOf(i), mrib::RouteType::connected, 0, i});
      },
      [&](U32 i) { table.routeDel(prefixOf(i)); });
}

// ---- The agent ----

/// Says to a transaction what stands in a line.
void tell(mrib::Transaction& t, const std::string& text) {
  std::istringstream all(text);
  for (std::string line; std::getline(all, line, ';');) {
    std::istringstream words(line);
    std::string what, a, b;
    U32 n = 0;
    words >> what >> a >> b >> n;
    const bool byName = !b.empty() && b[0] == 'e';
    const auto address = [&] { return IpGenAddr(std::string_view(b)); };
    const auto link = [&](const std::string& word) { return static_cast<U32>(std::stoul(word)); };
    if (what == "link") t.link({link(a), b});
    if (what == "nolink") t.linkDel(link(a));
    if (what == "address") t.address({link(a), address()});
    if (what == "noaddress") t.addressDel(link(a), address());
    if (what == "net") t.route({Net(a), mrib::RouteType::connected, 0, {{{}, link(b)}}});
    if (what == "nonet") t.routeDel(Net(a));
    if (what == "by") t.route({Net(a), mrib::RouteType::egp, 20, {{address(), n}, {{}, 1}, {{}, 2}}});
    if (what == "m") byName ? t.mroute(Net(a), b, n, n) : t.mroute(Net(a), address(), n, n);
    if (what == "nom") byName ? t.mrouteDel(Net(a), b, n) : t.mrouteDel(Net(a), address(), n);
    if (what == "none") t.mrouteDelAll();
    for (U32 i = 0; what == "nets" && i < n; ++i)
      t.route(prefixOf(i), mrib::RouteType::connected, 0, {{{{}, 1}}});
    for (U32 i = 0; what == "ms" && i < n; ++i) t.mroute(prefixOf(i), b, 1);
  }
}

std::string show(const mrib::Agent& agent) {
  std::set<std::string> lines;
  for (const mrib::Route& r : agent.routes()) {
    std::string line = r.prefix.stringValue() + " type " + std::to_string(U32(r.type)) + ' ';
    for (const auto& hop : r.nextHops)
      line += hop.address.stringValue() + '@' + std::to_string(hop.link) + ' ';
    lines.insert(line + std::to_string(r.preference));
  }
  for (const mrib::Link& link : agent.links()) lines.insert(std::to_string(link.index) + ' ' + link.name);
  for (const mrib::Mroute& m : agent.mroutes())
    lines.insert(m.prefix.stringValue() + ' ' + std::to_string(m.origin) + ' ' +
                 std::to_string(m.preference));
  for (const mrib::Unresolved& u : agent.unresolved()) lines.insert(u.mroute.prefix.stringValue() + u.text());
  std::string text;
  for (const std::string& line : lines) text += line + '\n';
  return text;
}

/// What look-ups say, which need no memory.
U64 glance(const mrib::Agent& agent) {
  U64 sum = agent.generation();
  for (U32 i = 0; i < 256; ++i) {
    const mrib::Route* r = agent.rpf(IpAddr::fromHost(i << 24 | 9));
    if (r)
      sum = sum * 31 + r->prefix.hash() + r->preference + r->nextHops[0].address.host() + r->nextHops[0].link;
  }
  return sum;
}

struct Scenario {
  const char* name;
  const char* before;
  const char* change;
  bool settles = false;  // the change is committed before, and settled when memory runs out
};
const Scenario scenarios[] = {
    {"links come", "", "link 3 eth3; address 3 40.0.0.1; net 40.0.0.0/24 3; m 41.0.0.0/8 eth3 1"},
    {"a link goes", "", "nolink 2; nonet 30.0.0.0/24"},
    {"a link gets another name", "m 9.0.0.0/8 eth2 1; m 8.0.0.0/8 eth9 1", "link 2 eth9"},
    {"links change names", "m 9.0.0.0/8 eth2 1", "link 1 eth2; link 2 eth1"},
    {"an address changes", "m 9.0.0.0/8 eth2 1", "noaddress 2 30.0.0.1; address 2 20.0.0.77"},
    {"a connected route goes", "", "nonet 20.0.0.0/24"},
    {"a connected route changes", "m 9.0.0.0/8 50.0.0.1 1", "net 20.0.0.0/24 2; net 50.0.0.0/8 2"},
    {"unicast routes come", "by 98.0.0.0/8 20.0.0.8 1",
     "by 99.0.0.0/8 20.0.0.7 1; nonet 98.0.0.0/8; m 9.0.0.0/8 20.0.0.9 1"},
    {"a configured route comes", "", "m 9.0.0.0/8 20.0.0.9 1; m 9.0.0.0/8 30.0.0.9 1; m 9.0.0.0/8 eth1 2"},
    {"preferences change", "m 9.0.0.0/8 20.0.0.9 1; m 9.0.0.0/8 30.0.0.9 2", "nom 9.0.0.0/8 20.0.0.9 1"},
    {"the configuration is another", "m 9.0.0.0/8 20.0.0.9 1",
     "none; m 8.0.0.0/8 20.0.0.9 1; m 50.0.0.0/8 30.0.0.4 1"},
    {"a chain follows", "m 9.0.0.0/8 8.0.0.1 1; m 8.0.0.0/8 7.0.0.1 1; m 7.0.0.0/8 6.0.0.1 1",
     "m 6.0.0.0/8 30.0.0.1 1"},
    {"one is on top of a connected route", "m 20.0.0.0/24 30.0.0.4 5",
     "m 30.0.0.0/24 20.0.0.9 9; nom 20.0.0.0/24 30.0.0.4 5"},
    {"a circle closes", "m 9.0.0.0/8 eth2 1; m 30.0.0.0/8 9.0.0.1 1",
     "noaddress 2 30.0.0.1; address 2 30.1.0.1"},
    {"a circle is held back", "m 9.0.0.0/8 eth2 1; m 8.0.0.0/8 9.0.0.1 1",
     "noaddress 2 30.0.0.1; address 2 8.0.0.7"},
    {"a circle opens", "m 9.0.0.0/8 eth2 1; m 8.0.0.0/8 9.0.0.1 1; address 2 8.0.0.7", "noaddress 2 8.0.0.7"},
    {"one is refused", "m 9.0.0.0/8 8.0.0.1 1", "m 7.0.0.0/8 20.0.0.9 1; m 8.0.0.0/8 9.0.0.1 1"},
    {"tables grow", "nets x x 30", "nets x x 150"},
    {"many come", "", "nets x x 70; none; ms x 30.0.0.9 90"},
    {"what the engine got wrong is healed",
     "net 98.0.0.0/8 1; m 7.0.0.0/8 9.0.0.1 1; m 9.0.0.0/8 98.0.0.1 1; m 9.0.0.0/8 20.0.0.9 3",
     "net 98.0.0.0/8 2", true},
};

class MemoryScenario : public testing::TestWithParam<std::tuple<Scenario, U32>> {
 protected:
  struct Subject {
    explicit Subject(const std::tuple<Scenario, U32>& p)
        : agent({std::get<0>(p).settles ? 100000 : std::get<1>(p)}), settles(std::get<0>(p).settles) {
      const Scenario& s = std::get<0>(p);
      tell(t,
           "link 1 eth1; link 2 eth2; address 1 20.0.0.1; address 2 30.0.0.1; net 20.0.0.0/24 1; net "
           "30.0.0.0/24 2; "
           "m 50.0.0.0/8 20.0.0.5 1; m 60.0.0.0/8 50.1.1.1 1; m 70.0.0.0/8 eth2 3; m 71.0.0.0/8 eth7 3;" +
               std::string(s.before));
      agent.commit(t);
      t.clear();
      tell(t, s.change);
      if (settles) agent.commit(t);
      if (!settles) agent.settle();
    }
    void change() { settles ? void(agent.settle()) : void(agent.commit(t)); }
    std::string state() {
      if (!settles) agent.settle();
      return show(agent);
    }
    mrib::Agent agent;
    mrib::Transaction t;
    const bool settles;
  };
};

TEST_P(MemoryScenario, StandsAsBeforeOrAsAfterwards) {
  Subject undisturbed(GetParam());
  const std::string before = undisturbed.state();
  const U64 seen = glance(undisturbed.agent);
  undisturbed.change();
  const std::string after = undisturbed.state();
  ASSERT_EQ(before == after, std::string(std::get<0>(GetParam()).name) == "one is refused");
  const auto passes = [&](long allocations) {
    Subject subject(GetParam());
    const bool failed = fails(allocations, [&] { subject.change(); });
    memory_left(0);
    const U64 seenNow = glance(subject.agent);
    memory_left(-1);
    EXPECT_EQ(seenNow == seen, failed || before == after);
    EXPECT_EQ(subject.state(), failed ? before : after);
    if (failed) subject.change();
    EXPECT_EQ(subject.state(), after);
    return !failed;
  };
  long allocations = 0;
  for (bool passed = false; !passed && !HasFailure(); ++allocations) {
    passed = passes(allocations);
    const long inUse = memory_in_use();
    passes(allocations);  // what is kept for the next time is there by now
    EXPECT_EQ(memory_in_use(), inUse) << "it leaks";
    if (HasFailure()) std::cout << "with " << allocations << " allocations\n";
  }
  EXPECT_GT(allocations, 5);
}

INSTANTIATE_TEST_SUITE_P(All, MemoryScenario,
                         testing::Combine(testing::ValuesIn(scenarios), testing::Values(1u, 100000u)));

}  // namespace
