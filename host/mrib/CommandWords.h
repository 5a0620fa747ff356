#pragma once

#include <string>
#include <vector>

namespace host {

/// A command line with its command in full: an unambiguous beginning of one counts as it, and what operators
/// know from routers as what it is here (`show ip rpf 10.1.2.3`, `show ip mroute-static`). `withValue` are
/// the options that are followed by a word of their own. Throws Error for what may be several commands.
std::vector<std::string> commandInFull(std::vector<std::string> words,
                                       const std::vector<std::string>& withValue);

}  // namespace host
