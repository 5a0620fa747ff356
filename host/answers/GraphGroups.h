#pragma once

#include "Graph.h"

namespace host {

/// A graph of at most `most` nodes, unless what was asked about is more than that: nodes that lead to the
/// same in the same way become one, and where these are still too many, those whose ways are alike. What was
/// asked about stays as it is.
Graph grouped(const Graph& graph, std::size_t most);

}  // namespace host
