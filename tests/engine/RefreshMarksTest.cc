#include <gtest/gtest.h>

#include "EngineWorld.h"
#include "Pim/MribSm/RefreshMarks.h"
#include "TraceRecorder.h"

namespace {

using Lumo::IpGenPrefix;
using Routing::Multicast::Rib::RefreshMarks;

/// Records without an engine, and the marks on them, all settled.
struct Marks : testing::Test {
  Marks() {
    for (const char* p : {"10.0.0.0/8", "20.0.0.0/8", "30.0.0.0/8"}) config->routeIs(IpGenPrefix(p));
    rpfIs("10.0.0.0/8", EngineWorld::via("1.1.1.1"));
    rpfIs("20.0.0.0/8", EngineWorld::via("1.1.2.2"));
    rpfIs("30.0.0.0/8", EngineWorld::intf(7));
    ip->intfAddrIs(Lumo::IntfId(7), Lumo::IpAddr("1.1.3.3"));
    marks.inputsAre({config.get(), status.get(), trie.get(), ip.get(), intfs.get()});
    EXPECT_TRUE(marks.allAreMarked()) << "what was never looked at";
    settle();
  }
  void settle() {
    {
      RefreshMarks::WholePass met(marks);
      met.complete();
    }
    while (const auto* entry = marks.next(0, defaultPrefix)) marks.unmark(*entry);
  }
  void rpfIs(const char* prefix, const EngineWorld::Rpf& rpf) {
    config->routeIs(IpGenPrefix(prefix))->prefIs(1)->rpfIs(rpf);
  }
  /// What is marked, in order; then nothing is.
  std::string marked() {
    std::string text;
    U64 order = 0;
    while (const auto* entry = marks.next(order, defaultPrefix)) {
      text += entry->prefix().stringValue() + ' ';
      order = entry->order();
      marks.unmark(*entry);
    }
    return text;
  }

  const IpGenPrefix defaultPrefix{"0.0.0.0/0"};
  Zan::Ptr<EngineWorld::Config> config = Zan::create<EngineWorld::Config>("config");
  Zan::Ptr<EngineWorld::Status> status = Zan::create<EngineWorld::Status>("status");
  Zan::Ptr<Routing::TrieGen> trie = Zan::create<Routing::TrieGen>("trie", Lumo::ipv4());
  Zan::Ptr<Ip::Status> ip = Zan::create<Ip::Status>("ip");
  Zan::Ptr<Interface::AllIntfStatusDir> intfs = Zan::create<Interface::AllIntfStatusDir>("intfs");
  RefreshMarks marks;
};

TEST_F(Marks, FollowEveryRecordThatAnOfferReads) {
  config->route(IpGenPrefix("20.0.0.0/8"))->prefIs(9);
  EXPECT_EQ(marked(), "") << "a preference without RPF";
  config->route(IpGenPrefix("20.0.0.0/8"))->pref(9)->rpfIs(EngineWorld::via("1.1.9.9"));
  EXPECT_EQ(marked(), "20.0.0.0/8 ") << "an RPF";
  ip->intfAddrIs(Lumo::IntfId(7), Lumo::IpAddr("1.1.4.4"));
  EXPECT_EQ(marked(), "30.0.0.0/8 ") << "an interface's address";
  intfs->intfStatusIs(Lumo::IntfId(7), "eth7");
  EXPECT_EQ(marked(), "30.0.0.0/8 ") << "an interface's status";
  intfs->intfStatusIs(Lumo::IntfId(8), "eth8");
  EXPECT_EQ(marked(), "") << "an interface that no RPF names";
  status->routeIs(Lumo::Prefix("10.0.0.0/8"));
  EXPECT_EQ(marked(), "10.0.0.0/8 ") << "the own route";
  status->routeIs(Lumo::Prefix("1.1.0.0/16"))->preferenceIs(3);
  EXPECT_EQ(marked(), "10.0.0.0/8 20.0.0.0/8 30.0.0.0/8 ") << "a route that RPF addresses may match";
  trie->routeIs(IpGenPrefix("1.1.4.0/24"), true);
  EXPECT_EQ(marked(), "30.0.0.0/8 ") << "a trie entry, by the interface's new address";
  trie->routeDel(IpGenPrefix("1.1.4.0/24"));
  EXPECT_EQ(marked(), "30.0.0.0/8 ");
  trie->routeIs(defaultPrefix, true);
  EXPECT_EQ(marked(), "") << "nothing resolves through the default route";
}

// ---- In the engine ----

/// A sink of traces that throws in the midst of the first pass over all.
TEST(MarksInTheEngine, AreAllSetAgainByAPassThatAnExceptionEnds) {
  EngineWorld w;
  w.intfIs(1, "eth1");
  for (const char* p : {"100.0.0.0/16", "100.1.0.0/16"}) w.rpfIs(p, 1, EngineWorld::via("10.0.1.2"));
  w.start();
  w.mribStatus->routeIs(Lumo::Prefix("10.0.1.0/24"))->viaIs({Lumo::IpAddr("10.0.1.1"), nullptr}, true);
  const auto refresh = [&] { w.mrib->routeResolver()->doMaybeRefreshRoutes({}, true); };
  {
    const TraceRecorder level8;
    Zan::traceSinkIs(
        [](void*, const Zan::TraceMessage& m) {
          if (m.text.find("Added route 100.0") != m.text.npos) throw std::runtime_error("sink");
        },
        nullptr);
    EXPECT_THROW(refresh(), std::runtime_error);
  }
  EXPECT_EQ(w.show("100.1.0.0/16"), "none");
  refresh();
  EXPECT_NE(w.show("100.1.0.0/16"), "none");
}

}  // namespace
