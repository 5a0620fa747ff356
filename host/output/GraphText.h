#pragma once

#include <nlohmann/json.hpp>
#include <string>

/// A graph of org.mrib in words, for whoever draws it.
namespace host::output {

using Json = nlohmann::ordered_json;

/// What stands at a node or an edge. Escaped for terminals, and no further.
struct Label {
  std::string title;
  std::string note;  ///< may be empty, as may the title of an edge
};
Label labelOf(const Json& node);
Label labelOf(const Json& edge, const Json& from);

/// How many of each kind there are, and what is wrong with how many of them, in a line.
std::string summaryOf(const Json& graph);

/// 5000 is "5,000".
std::string digitsOf(std::size_t count);
/// 1, "line" is "1 line"; 2 is "2 lines"; 5000 is "5,000 lines".
std::string counted(std::size_t count, const std::string& one, const std::string& several = {});

}  // namespace host::output
