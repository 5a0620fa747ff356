#include <gtest/gtest.h>

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
    const Zan::Expect range(Zan::ExceptionId::range), corruption(Zan::ExceptionId::corruption);
    raiseAll();
  }
  EXPECT_EQ(exceptionsIn(recorder).size(), 6u);
  raiseAll();
  EXPECT_EQ(exceptionsIn(recorder).size(), 10u);
  Zan::traceSinkIs([](void*, const Zan::TraceMessage&) { throw Quarn::CorruptionException("e"); }, nullptr);
  EXPECT_THROW(Zan::throwRangeException("a"), Quarn::CorruptionException) << "that of the sink, untraced";
}

/// Of three levels, of which one is enabled; with a "+" where the message is for the sink.
TEST(TraceHandles, GiveTheSinkWhatIsEnabledAndTheCoverageStreamAll) {
  Zan::TraceHandle handle("levels");
  for (const U32 level : {0u, 5u}) handle.levelEnabledIs(level, level > 0);
  std::string heard;
  const Zan::TraceSink hear = [](void* user, const Zan::TraceMessage& m) {
    (*static_cast<std::string*>(user) += std::to_string(m.level)) += m.enabled ? "+ " : " ";
  };
  const std::tuple<Zan::TraceSink, Zan::TraceSink, bool, const char*> cases[] = {
      {hear, nullptr, true, "5+ "},  {hear, nullptr, false, ""},       {hear, hear, true, "0 5+ 5+ 8 "},
      {hear, hear, false, "0 5 8 "}, {nullptr, hear, true, "0 5+ 8 "}, {nullptr, nullptr, true, ""}};
  for (const auto& [sink, stream, enabled, expected] : cases) {
    Zan::traceSinkIs(sink, &heard);
    Zan::coverageStreamIs(stream, &heard);
    handle.enabledIs(enabled);
    for (const U32 level : {0u, 5u, 8u}) ZAN_TRACE(handle, nullptr, level, "x");
    EXPECT_EQ(std::exchange(heard, ""), expected);
  }
}

TEST(TraceHandles, RefuseLevelsOver30AndMayGo) {
  {
    Zan::TraceHandle handle(std::string("a name that does not ") + "last");
    EXPECT_EQ(Zan::TraceHandle::find("a name that does not last"), &handle);
    for (const U32 level : {31u, 32u, 64u, ~0u}) {
      const std::string refused = "Zan::TraceHandle::level > 30 not allowed";
      EXPECT_EQ(refusal([&] { handle.levelEnabledIs(level, true); }), refused);
      EXPECT_EQ(refusal([&] { handle.levelsUpToIs(level); }), refused);
      EXPECT_EQ(refusal([&] { ZAN_TRACE(handle, nullptr, level, "x"); }), refused);
      EXPECT_EQ(refusal([&] { Zan::traceHelper("h", nullptr, "x", level, true, "", 1, ""); }), refused);
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
