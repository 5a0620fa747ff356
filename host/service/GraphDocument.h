#pragma once

#include "Documents.h"
#include "Graph.h"

namespace host::documents {

/// The members of a document about a graph that is drawn with `most` nodes; how many there are, nodes, edges.
std::string membersOf(const Graph& graph, std::size_t most);

}  // namespace host::documents
