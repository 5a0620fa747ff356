#include "Log.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <utility>

#include "Escape.h"

namespace host::daemon {

namespace {

constexpr Nanos window = 10'000'000'000;
constexpr std::size_t mostTexts = 32;

constexpr std::array<std::pair<std::string_view, Level>, 5> levels{{{"error", Level::error},
                                                                    {"warning", Level::warning},
                                                                    {"notice", Level::notice},
                                                                    {"info", Level::info},
                                                                    {"debug", Level::debug}}};

void writeToStandardError(std::string_view line) {
  while (!line.empty()) {
    const ssize_t n = ::write(STDERR_FILENO, line.data(), line.size());
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return;
    line.remove_prefix(static_cast<std::size_t>(n));
  }
}

}  // namespace

std::optional<Level> levelOf(std::string_view name) {
  for (const auto& [known, level] : levels) {
    if (known == name) return level;
  }
  return std::nullopt;
}

Log::Log(Level threshold, bool priorities, Sink sink)
    : threshold_(threshold), priorities_(priorities), sink_(std::move(sink)) {}

void Log::write(Level level, std::string_view text, Nanos now) {
  if (level > threshold_) return;
  turn(now);
  if (const auto it = recent_.find(text); it != recent_.end()) {
    ++it->second.repeats;
  } else if (recent_.size() >= mostTexts) {
    ++leftOut_;
  } else {
    recent_.emplace(text, Recent{level, now + window, 0});
    put(level, text);
  }
}

void Log::writeLines(Level level, std::string_view before, std::string_view text, Nanos now) {
  for (std::size_t end = 0; end != text.npos; text.remove_prefix(std::min(text.size(), end + 1))) {
    end = text.find('\n');
    write(level, fmt::format("{}{}", before, text.substr(0, end)), now);
  }
}

Nanos Log::turn(Nanos now) {
  Nanos next = ~Nanos{0};
  for (auto it = recent_.begin(); it != recent_.end();) {
    const auto& [text, recent] = *it;
    if (recent.until > now) {
      if (recent.repeats > 0) next = std::min(next, recent.until);
      ++it;
      continue;
    }
    if (recent.repeats > 0) put(recent.level, fmt::format("{} ({} times more)", text, recent.repeats));
    it = recent_.erase(it);
  }
  if (leftOut_ > 0 && recent_.size() < mostTexts) {
    put(Level::warning, fmt::format("{} other messages were left out", std::exchange(leftOut_, 0)));
  }
  return next;
}

void Log::put(Level level, std::string_view text) {
  const std::string prefix = priorities_ ? fmt::format("<{}>", static_cast<unsigned>(level)) : "mribd: ";
  sink_(fmt::format("{}{}\n", prefix, harmless(text)));
}

Log standardLog(Level threshold) {
  return {threshold, isatty(STDERR_FILENO) == 0, writeToStandardError};
}

}  // namespace host::daemon
