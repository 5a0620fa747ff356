#pragma once

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <string_view>

#include "Connection.h"

namespace host::daemon {

/// As syslog numbers them.
enum class Level : U8 { error = 3, warning = 4, notice = 5, info = 6, debug = 7 };
std::optional<Level> levelOf(std::string_view name);

/// A log of one line for each fault. The same text again within ten seconds is counted, and the count
/// told afterwards; of different texts at most 32 come within that time.
class Log {
 public:
  using Sink = std::function<void(std::string_view line)>;

  /// `priorities`: begin lines with "<N>", as a service manager reads them. The sink takes lines with their
  /// line feed.
  Log(Level threshold, bool priorities, Sink sink);

  /// What comes from outside is escaped in it already, but for control characters.
  void write(Level level, std::string_view text, Nanos now);
  /// Each line of a text for itself, behind the same words.
  void writeLines(Level level, std::string_view before, std::string_view text, Nanos now);
  /// Tells counts that are due. Returns when the next ones are, ~0 for never.
  Nanos turn(Nanos now);

 private:
  struct Recent {
    Level level;
    Nanos until;
    U64 repeats;
  };
  void put(Level level, std::string_view text);

  Level threshold_;
  bool priorities_;
  Sink sink_;
  std::map<std::string, Recent, std::less<>> recent_;
  U64 leftOut_ = 0;
};

/// To standard error; with priorities when that is no terminal.
Log standardLog(Level threshold);

}  // namespace host::daemon
