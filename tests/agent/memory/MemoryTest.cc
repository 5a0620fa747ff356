#include <gtest/gtest.h>

#include <numeric>
#include <set>
#include <sstream>

#include "../CTwin.h"
#include "OutOfMemory.h"
#include "Routing/Multicast/Rib/Config.h"
#include "Routing/PrefixTrie.h"
#include "Zan/Exception.h"
#include "Zan/SortedSet.h"

// Memory that runs out at the first allocation of an operation, at the second, and so on: the operation
// throws, all is as before or as afterwards, nothing is lost, and the next operation works.

namespace {

using Lumo::IpAddr;
using Lumo::IpGenAddr;
using Lumo::Prefix;
using mrib::Net;

/// Whether an operation throws with memory for so many allocations.
template <class F>
bool fails(long allocations, bool once, F operation) {
  try {
    memoryLeftIs(allocations, once);
    operation();
    return false;
  } catch (const std::bad_alloc&) {
    return true;
  } catch (const Zan::Exception&) {  // of a shared-memory table
    return true;
  }
}

// ---- Collections ----

template <class Has, class Add, class Drop>
void addAndDrop(U32 count, Has has, Add add, Drop drop) {
  for (const bool adds : {true, false}) {
    for (U32 i = 0; i < count; ++i) {
      for (long n = 0; fails(n, false, [&] { adds ? add(i) : drop(i); }); ++n) {
        memoryIsThere();
        ASSERT_TRUE(adds) << "what goes needs no memory";
        ASSERT_FALSE(has(i));
        ASSERT_TRUE(i == 0 || (has(i - 1) && has(i / 2)));
      }
      memoryIsThere();
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
}

// ---- The agent ----

/// Says to a transaction what stands in a line. A prefix of 8 bits is its first byte.
void tell(mrib::Transaction& t, const std::string& text) {
  std::istringstream all(text);
  for (std::string line; std::getline(all, line, ';');) {
    std::istringstream words(line);
    std::string what, a, b;
    U32 n = 0;
    words >> what >> a >> b >> n;
    U32 origin = n;
    words >> origin;
    const auto number = [](const std::string& word) { return static_cast<U32>(std::stoul(word)); };
    const auto prefix = [&] { return Net(a.size() < 3 ? a + ".0.0.0/8" : a); };
    const auto rpf = [&](auto take) { b[0] == 'e' ? take(b) : take(IpGenAddr(std::string_view(b))); };
    if (what == "link") t.link({number(a), b});
    if (what == "nolink") t.linkDel(number(a));
    if (what == "address") t.address({number(a), IpGenAddr(std::string_view(b))});
    if (what == "noaddress") t.addressDel(number(a), IpGenAddr(std::string_view(b)));
    if (what == "net") t.route({prefix(), mrib::RouteType::connected, 0, {{{}, number(b)}}});
    if (what == "nonet") t.routeDel(prefix());
    if (what == "by") t.route({prefix(), mrib::RouteType::egp, 20, {{{}, 1}, {{}, 2}, {{}, number(b)}}});
    if (what == "m") rpf([&](const auto& r) { t.mroute(prefix(), r, n, origin); });
    if (what == "nom") rpf([&](const auto& r) { t.mrouteDel(prefix(), r, n); });
    if (what == "none") t.mrouteDelAll();
    for (U32 i = 0; what == "nets" && i < number(a); ++i)
      t.route(prefixOf(i), mrib::RouteType::connected, 0, {{{{}, 1}}});
    for (U32 i = 0; what == "ms" && i < number(a); ++i) t.mroute(prefixOf(i), b, 1);
  }
}

std::string show(const mrib::Agent& agent) {
  std::set<std::string> lines;
  for (const mrib::Route& r : agent.routes()) lines.insert(ctwin::say(r));
  for (const mrib::Link& link : agent.links()) lines.insert(std::to_string(link.index) + link.name + '\n');
  for (const mrib::Mroute& m : agent.mroutes())
    lines.insert(m.prefix.stringValue() + " by line " + std::to_string(m.origin) + '\n');
  for (const auto& u : agent.unresolved()) lines.insert(u.mroute.prefix.stringValue() + u.text() + '\n');
  return std::accumulate(lines.begin(), lines.end(), std::string());
}

/// What look-ups say, which need no memory.
U64 glance(const mrib::Agent& agent) {
  U64 sum = agent.generation();
  for (U32 i = 0; i < 256; ++i) {
    if (const auto* r = agent.rpf(IpAddr::fromHost(i << 24 | 9)))
      sum = sum * 31 + r->prefix.hash() + r->nextHops[0].address.host() + r->nextHops[0].link;
  }
  return sum;
}

/// What is there beside two links, each with a net, and some routes; and what changes.
struct Scenario {
  const char* name;
  std::string before;
  const char* change;
};
const Scenario scenarios[] = {
    {"links come", "", "link 3 eth3; address 3 40.0.0.1; net 40 3; m 41 eth3 1"},
    {"a link goes", "", "nolink 2; nonet 30.0.0.0/24"},
    {"a link gets another name", "m 9 eth2 1; m 8 eth9 1", "link 2 eth9"},
    {"links change names", "m 9 eth2 1", "link 1 eth2; link 2 eth1"},
    {"an address changes", "m 9 eth2 1", "noaddress 2 30.0.0.1; address 2 20.0.0.77"},
    {"a connected route goes", "", "nonet 20.0.0.0/24"},
    {"a connected route changes", "m 9 50.0.0.1 1", "net 20.0.0.0/24 2; net 50 2"},
    {"unicast routes change", "by 98 1", "by 99 2; by 98 2; m 9 20.0.0.9 1"},
    {"a configured route comes", "", "m 9 20.0.0.9 1; m 9 30.0.0.9 1; m 9 eth1 2"},
    {"preferences change", "m 9 20.0.0.9 1; m 9 30.0.0.9 2", "nom 9 20.0.0.9 1"},
    {"the configuration is another", "m 9 20.0.0.9 1", "none; m 8 20.0.0.9 1; m 50 30.0.0.4 1"},
    {"a chain follows", "m 9 8.0.0.1 1; m 8 7.0.0.1 1; m 7 6.0.0.1 1", "m 6 30.0.0.1 1"},
    {"on top of a connected route", "m 20.0.0.0/24 30.0.0.4 5", "nom 20.0.0.0/24 30.0.0.4 5"},
    {"a circle is held back", "m 9 eth2 1; m 8 9.0.0.1 1", "noaddress 2 30.0.0.1; address 2 8.0.0.7"},
    {"a circle opens", "m 9 eth2 1; m 8 9.0.0.1 1; address 2 8.0.0.7", "noaddress 2 8.0.0.7"},
    {"a circle is refused", "m 9 8.0.0.1 1", "m 60 50.1.1.1 1 8; m 7 20.0.0.9 1; m 8 9.0.0.1 1"},
    {"tables grow", "nets 28", "nets 36"},
    {"routes that resolve in a new net", "", "net 99 2; m 8 99.0.0.1 1; m 9 8.0.0.1 2; m 9 99.0.0.2 2"},
    {"many come", "", "nets 9; none; ms 30 30.0.0.9"},
    {"settling takes away", "m 30.0.0.0/24 eth1 1", "m 20 eth2 1; nonet 30.0.0.0/24"},
    {"settling heals", "net 98 1; m 7 9.0.0.1 1; m 6 9.0.0.9 1; m 9 98.0.0.1 1; m 9 20.0.0.9 3", "net 98 2"},
};

struct Subject {
  Subject(const Scenario& s, bool follows)
      : agent({follows ? 100000u : 1}), settles(std::string_view(s.name).starts_with("settling")) {
    tell(t,
         "link 1 eth1; link 2 eth2; address 1 20.0.0.1; address 2 30.0.0.1; net 20.0.0.0/24 1;"
         "net 30.0.0.0/24 2; m 50 20.0.0.5 1; m 60 50.1.1.1 1; m 70 eth2 3; m 71 eth7 3;" +
             s.before);
    agent.commit(t);
    t.clear();
    tell(t, s.change);
    settles ? void(agent.commit(t)) : void(agent.settle());
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

void standsAsBeforeOrAsAfterwards(const Scenario& scenario, bool follows) {
  Subject undisturbed(scenario, follows);
  const std::string before = undisturbed.state();
  const U64 seen = glance(undisturbed.agent);
  undisturbed.change();
  const std::string after = undisturbed.state();
  const bool changes = before != after;
  EXPECT_TRUE(changes == (scenario.name != std::string("a circle is refused")) || !follows);
  const auto passes = [&](long allocations, bool once) {
    Subject subject(scenario, follows);
    const bool failed = fails(allocations, once, [&] { subject.change(); });
    const bool sufficed = memoryIsThere();
    memoryLeftIs(0);
    const U64 seenNow = glance(subject.agent);
    memoryIsThere();
    EXPECT_TRUE(seenNow == seen || (changes && !failed));
    EXPECT_EQ(subject.state(), failed ? before : after);
    EXPECT_TRUE(!failed || glance(subject.agent) == seen) << "not by what is published";
    if (failed) subject.change();
    EXPECT_EQ(subject.state(), after);
    return sufficed;
  };
  for (long n = 0; !testing::Test::HasFailure(); ++n) {
    SCOPED_TRACE(scenario.name + (" with memory for " + std::to_string(n)));
    const bool sufficed = passes(n, false);
    const long inUse = memoryInUse();
    passes(n, true);  // what is kept for the next time is there by now
    EXPECT_EQ(memoryInUse(), inUse) << "it leaks";
    if (sufficed) return;
  }
}

TEST(Memory, AnAgentThatFollowsStandsAsBeforeOrAsAfterwards) {
  for (const Scenario& scenario : scenarios) standsAsBeforeOrAsAfterwards(scenario, true);
}
TEST(Memory, AnAgentThatStartsAnewStandsAsBeforeOrAsAfterwards) {
  for (const Scenario& scenario : scenarios) standsAsBeforeOrAsAfterwards(scenario, false);
}

TEST(Memory, TheCApiHasACodeForIt) {
  auto link = ctwin::sized<mrib_link>();
  link.index = 1;
  link.name = "eth1";
  for (int n = 0, committed = MRIB_ERROR_MEMORY; committed != MRIB_OK; ++n) {
    memoryLeftIs(n);
    mrib_agent* agent = mrib_create(nullptr);
    const int begun = mrib_begin(agent);
    const int set = mrib_link_set(agent, &link);
    committed = mrib_commit(agent, nullptr);
    memoryIsThere();
    const bool noAgent = !agent && begun == MRIB_ERROR_ARGUMENT, notTaken = set == MRIB_ERROR_MEMORY;
    ASSERT_TRUE(noAgent || begun == MRIB_OK);
    ASSERT_TRUE(noAgent || notTaken || committed == MRIB_OK || committed == MRIB_ERROR_MEMORY);
    ASSERT_TRUE(!notTaken || committed == MRIB_ERROR_REFUSED);
    ASSERT_TRUE(committed == MRIB_OK || mrib_error_text(0));
    if (!noAgent && committed == MRIB_ERROR_MEMORY) {
      auto got = ctwin::sized<mrib_link>();
      const int asked = mrib_link_get(agent, 1, &got);
      ASSERT_TRUE(asked == MRIB_ERROR_MEMORY || asked == MRIB_NOT_FOUND) << "it makes nothing anew";
      ASSERT_EQ(mrib_commit(agent, nullptr), MRIB_OK) << "it may be tried again";
      ASSERT_EQ(mrib_link_get(agent, 1, &got), MRIB_OK);
    }
    ASSERT_TRUE(noAgent || mrib_settle(agent, nullptr) == MRIB_OK);
    mrib_free(agent);
  }
}

}  // namespace
