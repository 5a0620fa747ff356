#pragma once

#include <string>

#include "Error.h"

namespace host::output {

/// Graphviz is not installed.
class NoGraphviz : public Error {
 public:
  using Error::Error;
};

/// The picture that Graphviz' `dot` makes of a text for it, as SVG. Throws NoGraphviz, and Error when it
/// fails or takes longer than half a minute.
std::string svgOf(const std::string& dot);

}  // namespace host::output
