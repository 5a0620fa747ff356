#pragma once

#include "Zan/Export.h"
#include "Zan/Types.h"

namespace Zan {

/// What a failed assertion says of itself.
struct ZAN_EXPORT AssertionFailure {
  const char* expression;
  const char* file;
  U32 line;
  const char* function;
};

/// Called with the failure before the process aborts; it may log, it can't prevent the abort.
using AssertionObserver = void (*)(const AssertionFailure&);
ZAN_EXPORT void assertionObserverIs(AssertionObserver observer);

/// Writes "file:line: function: assertion `expression' failed" to standard error and aborts.
[[noreturn, gnu::cold]] ZAN_EXPORT void assertionFailed(const AssertionFailure& failure);

}  // namespace Zan

/// Aborts the process, naming `text`, unless `condition` holds. For errors of the program, never of its
/// input.
#define ZAN_ASSERT_AT(condition, text, line)         \
  (__builtin_expect(static_cast<bool>(condition), 1) \
       ? static_cast<void>(0)                        \
       : ::Zan::assertionFailed({text, __FILE__, static_cast<U32>(line), __PRETTY_FUNCTION__}))
#define ZAN_ASSERT_TEXT(condition, text) ZAN_ASSERT_AT(condition, text, __LINE__)
#define ZAN_ASSERT(condition) ZAN_ASSERT_TEXT(condition, #condition)
