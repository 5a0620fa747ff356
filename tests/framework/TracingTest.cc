#include <gtest/gtest.h>

#include <functional>

#include "Quarn/CorruptionException.h"
#include "Refusal.h"
#include "TraceRecorder.h"
#include "Zan/IntrospectionException.h"
#include "Zan/Trace.h"

namespace {

std::vector<std::string> exceptionsIn(const TraceRecorder& recorder) {
  std::vector<std::string> texts;
  for (const auto& m : recorder.messages) {
    if (m.handle == "Zan") texts.push_back(m.text);
  }
  return texts;
}
using Texts = std::vector<std::string>;

TEST(Exceptions, AreTracedUnlessTheyAreExpected) {
  ASSERT_TRUE(Zan::TraceHandle::find("Zan"));
  const TraceRecorder recorder;
  const auto raiseAll = [] {
    EXPECT_THROW(Zan::throwRangeException("a"), Zan::RangeException);
    EXPECT_THROW(throw Quarn::CorruptionException("b"), Quarn::CorruptionException);
    EXPECT_THROW(throw Zan::BadIndexException("c"), Zan::BadIndexException);
    EXPECT_THROW(throw Zan::Exception("d"), Zan::Exception);
  };
  raiseAll();
  EXPECT_EQ(exceptionsIn(recorder),
            (Texts{"range exception: a", "corruption exception: b",
                   "introspection exception: bad index for attribute \"c\"", "exception: d"}));
  {
    const Zan::Expect range(Zan::ExceptionId::range);
    {
      const Zan::Expect corruption(Zan::ExceptionId::corruption);
      raiseAll();
    }
    EXPECT_EQ(exceptionsIn(recorder).size(), 6u);
    raiseAll();
    EXPECT_EQ(exceptionsIn(recorder).size(), 9u);
  }
}

TEST(TraceHandles, RefuseLevelsOver30AndMayGo) {
  {
    Zan::TraceHandle handle(std::string("a name that does not ") + "last");
    EXPECT_EQ(Zan::TraceHandle::find("a name that does not last"), &handle);
    const std::vector<std::function<void(U32)>> calls{
        [&](U32 level) { handle.wants(level); },
        [&](U32 level) { handle.traces(level); },
        [&](U32 level) { handle.levelEnabled(level); },
        [&](U32 level) { handle.levelEnabledIs(level, true); },
        [&](U32 level) { handle.levelsUpToIs(level); },
        [&](U32 level) { ZAN_TRACE(handle, nullptr, level, "x"); },
        [](U32 level) { Zan::traceHelper("h", nullptr, "x", level, true, "", 1, ""); },
    };
    for (const auto& call : calls) {
      for (const U32 level : {31u, 32u, 64u, ~0u})
        EXPECT_EQ(refusal([&] { call(level); }), "Zan::TraceHandle::level > 30 not allowed");
    }
    handle.levelsUpToIs(30);
    const TraceRecorder recorder(30);
    const char* none = nullptr;
    ZAN_TRACE(handle, nullptr, 30, none << 1);
    EXPECT_TRUE(recorder.contains("NULL1"));
  }
  EXPECT_FALSE(Zan::TraceHandle::find("a name that does not last"));
  Zan::traceSinkIs(nullptr, nullptr);
}

}  // namespace
