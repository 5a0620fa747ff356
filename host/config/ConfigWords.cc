#include "ConfigWords.h"

#include <fmt/format.h>

#include <charconv>

namespace host {

namespace {

bool isBlank(char c) {
  return c == ' ' || c == '\t';
}

std::optional<unsigned> hexByte(std::string_view digits) {
  unsigned value = 0;
  const auto end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, value, 16);
  if (digits.size() != 2 || stop != end || error != std::errc{}) return std::nullopt;
  return value;
}

}  // namespace

std::optional<Word> ConfigWords::next() {
  while (at_ < line_.size() && isBlank(line_[at_])) ++at_;
  if (at_ == line_.size() || line_[at_] == '!' || line_[at_] == '#') return std::nullopt;
  return line_[at_] == '"' ? quotedWord() : plainWord();
}

Word ConfigWords::plainWord() {
  const std::size_t start = at_;
  for (; at_ < line_.size() && !isBlank(line_[at_]); ++at_) checkByte(line_[at_]);
  return {line_.substr(start, at_ - start), static_cast<U32>(start) + 1, false};
}

Word ConfigWords::quotedWord() {
  const U32 start = column();
  unescaped_.clear();
  for (++at_; at_ < line_.size() && line_[at_] != '"'; ++at_) {
    checkByte(line_[at_]);
    unescaped_ += line_[at_] == '\\' ? escape() : line_[at_];
  }
  if (at_ >= line_.size()) throw Fault{start, "expected a closing quote"};
  ++at_;
  if (at_ < line_.size() && !isBlank(line_[at_])) throw Fault{column(), "expected a blank after the quote"};
  return {unescaped_, start, true};
}

char ConfigWords::escape() {
  const U32 start = column();
  if (++at_ < line_.size() && (line_[at_] == '"' || line_[at_] == '\\')) return line_[at_];
  if (at_ < line_.size() && line_[at_] == 'x') {
    const auto value = hexByte(line_.substr(at_ + 1, 2));
    at_ += 2;
    if (value && *value != 0) return static_cast<char>(*value);
  }
  throw Fault{start, "expected \\\", \\\\ or \\xHH (not \\x00)"};
}

void ConfigWords::checkByte(char c) const {
  const auto byte = static_cast<unsigned char>(c);
  if (byte < 0x20 || byte == 0x7F) {
    throw Fault{column(), fmt::format("unexpected control byte \\x{:02X}", byte)};
  }
}

}  // namespace host
