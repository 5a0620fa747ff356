#pragma once

#include "GraphText.h"

/// A graph for programs that draw.
namespace host::output {

/// For Graphviz. Nodes and edges have classes, so that a page with the picture can give them colours of its
/// own.
std::string dotOf(const Json& graph);
/// For Mermaid, as wikis and issue trackers draw it.
std::string mermaidOf(const Json& graph);

}  // namespace host::output
