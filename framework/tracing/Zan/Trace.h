#pragma once

#include <atomic>
#include <string_view>
#include <vector>

#include "Zan/Export.h"
#include "Zan/String8.h"
#include "Zan/Text.h"
#include "Zan/Types.h"

namespace Zan {

class PtrInterface;

/// One traced message. The views are valid during the call of the sink only.
struct ZAN_EXPORT TraceMessage {
  std::string_view handle;
  const PtrInterface* context;  ///< the object that traces; may be null
  std::string_view text;        ///< may hold any byte
  U32 level;
  bool enabled;  ///< false: the level is off and the text was built for the coverage stream alone
  std::string_view file;
  U32 line;
  std::string_view function;
};

using TraceSink = void (*)(void* user, const TraceMessage& message);

/// Where enabled messages go; null (the default) discards them, and then no text is built.
ZAN_EXPORT void traceSinkIs(TraceSink sink, void* user);
/// A process-wide stream that gets every message, whether its level is enabled or not. Null turns it off.
ZAN_EXPORT void coverageStreamIs(TraceSink stream, void* user);

/// A named channel of messages with an overall switch and one switch per level (0 to 30; any other level is
/// refused with a range exception, wherever it is given). Usually lives as long as the process. A site that
/// is off costs one relaxed load and one branch.
class ZAN_EXPORT TraceHandle {
 public:
  static constexpr U32 maxLevel = 30;

  explicit TraceHandle(std::string_view name, bool enabledByDefault = true);
  ~TraceHandle();
  TraceHandle(const TraceHandle&) = delete;
  TraceHandle& operator=(const TraceHandle&) = delete;

  std::string_view name() const { return name_.view(); }
  bool enabled() const { return enabled_; }
  void enabledIs(bool enabled);
  bool levelEnabled(U32 level) const { return (levels_ >> checked(level) & 1) != 0; }
  void levelEnabledIs(U32 level, bool enabled);
  /// Enables levels 0 to `level` and disables those above.
  void levelsUpToIs(U32 level);

  /// Whether a message of this level must be built.
  bool wants(U32 level) const {
    return (interest_.load(std::memory_order_relaxed) & (U32{1} << checked(level) | coverageBit)) != 0;
  }
  /// Whether a message of this level reaches the sink.
  bool traces(U32 level) const { return levelEnabled(level) && enabled_; }

  /// The handle of that name, or null. All handles, in the order of their creation.
  static TraceHandle* find(std::string_view name);
  static const std::vector<TraceHandle*>& handles();

 private:
  friend void traceSinkIs(TraceSink, void*);
  friend void coverageStreamIs(TraceSink, void*);
  friend ZAN_EXPORT void traceHelper(std::string_view, const PtrInterface*, std::string_view, U32, bool,
                                     std::string_view, U32, std::string_view);
  static constexpr U32 coverageBit = U32{1} << 31;
  static U32 checked(U32 level) {
    if (level > maxLevel) refuseLevel();
    return level;
  }
  [[noreturn, gnu::cold]] static void refuseLevel();
  static void updateAll();
  void update();

  String8 name_;
  bool enabled_;
  U32 levels_ = 1;
  std::atomic<U32> interest_{0};
};

/// Emits one message: to the sink when `enabled`, and to the coverage stream in any case.
ZAN_EXPORT void traceHelper(std::string_view handleName, const PtrInterface* context, std::string_view text,
                            U32 level, bool enabled, std::string_view file, U32 line,
                            std::string_view function);

}  // namespace Zan

/// Traces `...` (a chain of <<) when the handle wants the level; builds nothing otherwise.
#define ZAN_TRACE_OF(handle, context, level, line, function, ...)                                           \
  do {                                                                                                      \
    if (__builtin_expect((handle).wants(level), 0)) {                                                       \
      ::Zan::Text zanText;                                                                                  \
      zanText << __VA_ARGS__;                                                                               \
      ::Zan::traceHelper((handle).name(), context, zanText.view(), level, (handle).traces(level), __FILE__, \
                         static_cast<U32>(line), function);                                                 \
    }                                                                                                       \
  } while (false)
#define ZAN_TRACE_AT(handle, context, level, line, ...) \
  ZAN_TRACE_OF(handle, context, level, line, __func__, __VA_ARGS__)
#define ZAN_TRACE(handle, context, level, ...) ZAN_TRACE_AT(handle, context, level, __LINE__, __VA_ARGS__)
