#pragma once

#include <nlohmann/json.hpp>

#include "Target.h"

namespace fuzz {

/// Whether a text may stand on any terminal: UTF-8 without control characters, but for ends of lines, and
/// without those that turn writing round.
inline bool isSafe(const std::string& text) {
  U8 last = 0;
  for (const char c : text) {
    const auto byte = static_cast<U8>(c);
    if ((byte < ' ' && c != '\n') || byte == 0x7F || (last == 0xC2 && byte < 0xA0)) return false;
    last = byte;
  }
  for (const char* turning : {"\u202A", "\u202B", "\u202C", "\u202D", "\u202E", "\u2066", "\u2067"}) {
    if (text.find(turning) != text.npos) return false;
  }
  try {
    return !nlohmann::json(text).dump().empty();
  } catch (const nlohmann::json::exception&) {
    return false;  // no UTF-8
  }
}

}  // namespace fuzz
