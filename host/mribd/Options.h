#pragma once

#include <string>
#include <vector>

#include "Call.h"
#include "Zan/Types.h"

namespace host {

/// What a daemon is started with.
struct Options {
  std::string config;
  std::string socket = control::defaultSocket;
  std::string table;
  std::string vrf;
  std::string logLevel = "info";
  bool foreground = false;
  U32 exportTable = 0;
  std::string exportFor;
  bool exportKeep = false;
  std::string exportRule;
};

/// Reads the words of a command line, without the program's own name. Returns what is to be printed when help
/// or the version is all that they ask for. Throws Error.
std::string readOptions(std::vector<std::string> words, Options& options);

}  // namespace host
