#include "Escape.h"

#include <fmt/format.h>

namespace host {

namespace {

/// Length of the well-formed UTF-8 sequence at the start of `s`, 0 when there is none (RFC 3629).
std::size_t sequenceLength(std::string_view s) {
  const auto byte = [&](std::size_t i) { return static_cast<unsigned char>(s[i]); };
  const unsigned lead = byte(0);
  const std::size_t n = lead < 0x80                   ? 1
                        : lead >= 0xC2 && lead < 0xE0 ? 2
                        : (lead & 0xF0) == 0xE0       ? 3
                        : lead >= 0xF0 && lead < 0xF5 ? 4
                                                      : 0;
  if (n == 0 || s.size() < n) return 0;
  for (std::size_t i = 1; i < n; ++i) {
    if ((byte(i) & 0xC0) != 0x80) return 0;
  }
  if (n == 3 && ((lead == 0xE0 && byte(1) < 0xA0) || (lead == 0xED && byte(1) > 0x9F))) return 0;
  if (n == 4 && ((lead == 0xF0 && byte(1) < 0x90) || (lead == 0xF4 && byte(1) > 0x8F))) return 0;
  return n;
}

/// Whether a sequence of three bytes turns writing round, hides something or ends a line: U+200B to 200F,
/// 2028 to 202E, 2060 to 206F, FEFF; or is no character at all, as XML has it: U+FFFE and FFFF.
bool deceives(std::string_view s) {
  const auto second = static_cast<unsigned char>(s[1]);
  const auto third = static_cast<unsigned char>(s[2]);
  if (s[0] == '\xEF') return (second == 0xBB && third == 0xBF) || (second == 0xBF && third >= 0xBE);
  if (s[0] != '\xE2') return false;
  if (second == 0x81) return third >= 0xA0 && third <= 0xAF;
  return second == 0x80 && ((third >= 0x8B && third <= 0x8F) || (third >= 0xA8 && third <= 0xAE));
}

/// Whether a terminal may take the sequence of `n` bytes at the start for a command.
bool isControl(std::string_view s, std::size_t n) {
  const auto lead = static_cast<unsigned char>(s[0]);
  if (n == 1) return lead < 0x20 || lead == 0x7F;
  if (n == 2) return lead == 0xC2 && static_cast<unsigned char>(s[1]) < 0xA0;
  return n == 3 && deceives(s);
}

/// `marked` get a backslash.
std::string escapedBut(std::string_view text, std::string_view marked) {
  std::string out;
  while (!text.empty()) {
    const char c = text.front();
    std::size_t n = sequenceLength(text);
    if (n == 0 || isControl(text, n)) {
      out += fmt::format("\\x{:02X}", static_cast<unsigned char>(c));
      n = 1;
    } else {
      if (marked.find(c) != marked.npos) out += '\\';
      out += text.substr(0, n);
    }
    text.remove_prefix(n);
  }
  return out;
}

}  // namespace

std::string escaped(std::string_view text) {
  return escapedBut(text, "\"\\");
}

std::string harmless(std::string_view sentence) {
  return escapedBut(sentence, "");
}

std::string jsonText(std::string_view text) {
  for (std::string_view rest = text; !rest.empty();) {
    const std::size_t n = sequenceLength(rest);
    if (n == 0) return escaped(text);
    rest.remove_prefix(n);
  }
  return std::string(text);
}

}  // namespace host
