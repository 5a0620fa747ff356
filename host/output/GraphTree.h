#pragma once

#include "GraphText.h"

namespace host::output {

struct TreeLook {
  bool utf8 = false;    ///< branches of box-drawing characters, and not of ASCII
  bool colour = false;  ///< what is told in words is also told in the colours of a terminal
};

/// A graph as trees: of all, what depends on each interface; of what was asked about, first what it leads
/// through.
std::string treeOf(const Json& graph, const TreeLook& look);

}  // namespace host::output
