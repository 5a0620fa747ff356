#pragma once

#include <string>
#include <variant>

#include "ImaginedKernel.h"

namespace host {

/// A change that is only asked about.
struct LinkWords {
  std::string link;
  bool up = false;
};
struct AddressWords {
  std::string link;
  bool add = false;
  Lumo::IpAddr local{};
  std::optional<U8> length{};  ///< none: of one that goes, whatever it is
};
/// A line of the configuration, as `edited` takes it.
struct ConfigurationWords {
  std::string command;
};
using ImaginedChange = std::variant<LinkWords, AddressWords, kernel::RouteRequest, ConfigurationWords>;

/// Reads `link NAME down|up`, `address NAME add|del ADDRESS/LENGTH`, `route VERB ...` in the words of `ip
/// route`, and lines that begin with `ip` or `no`. Names may stand in quotes, as in a configuration. Throws
/// Error, which says what was expected.
ImaginedChange parseChange(const std::string& text);

}  // namespace host
