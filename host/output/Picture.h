#pragma once

#include <string>

namespace host::output {

/// An SVG file as a part of a page that has its description in the element with this id. It shrinks with the
/// page, but not until nobody can read it.
std::string inlineSvg(const std::string& svg, const std::string& describedBy);

}  // namespace host::output
