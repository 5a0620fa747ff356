#pragma once

#include <string>
#include <vector>

#include "Error.h"
#include "Inspect.h"

namespace host {

enum ExitCode : int { found = 0, usageError = 1, inputError = 2, noRpfRoute = 3, notTakenIn = 4, stale = 5 };

/// The command line is wrong, though its words are right one by one.
class UsageError : public Error {
 public:
  using Error::Error;
};

/// What the user asks for.
struct Request {
  std::string command;                 ///< empty: everything
  std::vector<std::string> arguments;  ///< of the command
  bool json = false;
  bool longer = false;
  bool unresolved = false;  ///< with the routes
  bool waiting = false;
  std::string type;
  std::string format;    ///< of a picture; empty: what the file's name says
  std::string output;    ///< a file; empty or -: standard output
  U32 most = 0;          ///< nodes of a picture; 0: as many as are readable
  std::string incoming;  ///< interface
  double interval = 1;   ///< seconds between two readings
  bool follow = false;
  bool dryRun = false;
  bool save = false;
  bool notes = false;
  bool fresh = false;  ///< a stale answer is an error
  bool sample = false;
  bool once = false;
  std::string tableName;  ///< or its number; empty: the main one, as below
  std::string vrf;        ///< whose table it is
  bool table = false;     ///< another than the main one was named
  int traceLevel = -1;
  std::string from;
  std::string config;
  std::string socket;
  U32 tableNumber = 254;
  bool eachLink = false;
  U32 last = 0;  ///< so many changes; 0: all
  std::string since;
  std::string at;  ///< a time or a generation
  InspectRequest inspect;
};

/// Does it, if only to print `help`, and says what went wrong. Returns the exit code.
int execute(Request& request, const std::string& help);

/// Prints an error as the user wants it, and returns the exit code.
int report(const Request& request, int code, const std::string& text);

}  // namespace host
