#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Zan/Types.h"

namespace host {

/// A fault in one line, thrown to whoever reads the lines.
struct Fault {
  U32 column;  ///< from 1, in bytes
  std::string text;
};

/// A word of a line, without the quotes around it.
struct Word {
  std::string_view text;
  U32 column;
  bool quoted;
};

/// Splits a line into words, each when it is asked for. A comment, from ! or # at the start of a word on, is
/// no word. Throws Fault.
class ConfigWords {
 public:
  /// The line must outlive this.
  explicit ConfigWords(std::string_view line) : line_(line) {}
  /// The next word, if there is one. Valid until the next call.
  std::optional<Word> next();
  /// The column behind the line.
  U32 endColumn() const { return static_cast<U32>(line_.size()) + 1; }

 private:
  U32 column() const { return static_cast<U32>(at_) + 1; }
  Word plainWord();
  Word quotedWord();
  char escape();
  void checkByte(char c) const;

  std::string_view line_;
  std::size_t at_ = 0;
  std::string unescaped_;
};

}  // namespace host
