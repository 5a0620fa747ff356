#include <gtest/gtest.h>

#include "EngineWorld.h"
#include "TraceRecorder.h"

namespace {

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
