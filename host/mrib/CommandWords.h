#pragma once

#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace host {

/// How many words follow an option; nothing for what is none.
using WordsAfter = std::function<std::optional<int>(const std::string&)>;

/// A command line with its command in full: an unambiguous beginning of one counts as it, and what operators
/// know from routers as what it is here (`show ip rpf 10.1.2.3`, `show ip mroute-static`). Throws
/// Error for what may be several commands, or none.
std::vector<std::string> commandInFull(std::vector<std::string> words, const WordsAfter& wordsAfter);

}  // namespace host
