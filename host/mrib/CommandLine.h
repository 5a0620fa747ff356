#pragma once

#include "Commands.h"

namespace host {

/// Reads the words of a command line, without the program's own name. Returns what is to be printed when help
/// or the version is all that they ask for. Throws Error, and then what was read until there holds.
std::string readCommandLine(std::vector<std::string> words, Request& request);

}  // namespace host
