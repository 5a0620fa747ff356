#pragma once

#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Lumo/IpAddr.h"
#include "Lumo/Prefix.h"

namespace host {

/// One line `ip mroute PREFIX {NEXTHOP|INTERFACE} [PREFERENCE]`.
struct MrouteLine {
  Lumo::Prefix prefix;
  std::variant<Lumo::IpAddr, std::string> rpf;  ///< next hop address or interface name
  U8 preference;                                ///< 1 to 255
  U32 line;                                     ///< from 1

  /// The RPF as it is written in the file, escaped.
  std::string rpfText() const;
};

struct ConfigError {
  U32 line;    ///< from 1
  U32 column;  ///< from 1, in bytes
  std::string text;
};

/// What a configuration holds, or everything that is wrong with it; with an error nothing of it is to be
/// used.
struct ParsedConfig {
  std::vector<MrouteLine> lines;
  std::vector<ConfigError> errors;
};

/// Reads the text of a configuration: `ip mroute` lines, blank lines, comments from `!` or `#` at the start
/// of a word to the end of the line. An interface name with blanks, quotes, backslashes or control bytes is
/// written in double quotes with \", \\ and \xHH.
ParsedConfig parseConfig(std::string_view text);

/// The lines of a file. Throws Error with one line for each error: "FILE:LINE:COLUMN: what was expected".
std::vector<MrouteLine> readConfig(const std::string& path);

}  // namespace host
