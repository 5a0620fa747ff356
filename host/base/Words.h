#pragma once

#include <CLI/CLI.hpp>
#include <algorithm>
#include <sstream>

#include "Error.h"
#include "Escape.h"

/// The words of a command line.
namespace host::words {

/// For words that may not be empty: an empty one is a mistake of a script, and not the same as none.
inline std::string notEmpty(const std::string& text) {
  return text.empty() ? "a word is needed" : "";
}

/// Has `app` read them. Returns what is to be printed when help or the version is all that they ask for.
/// Throws Error.
inline std::string read(CLI::App& app, std::vector<std::string> words) {
  std::reverse(words.begin(), words.end());  // as the library wants them
  try {
    app.parse(std::move(words));
    return {};
  } catch (const CLI::ParseError& e) {
    if (e.get_exit_code() != 0) throw Error(escaped(e.what()) + " (--help lists what there is)");
    std::ostringstream text;
    app.exit(e, text, text);
    return text.str();
  }
}

}  // namespace host::words
