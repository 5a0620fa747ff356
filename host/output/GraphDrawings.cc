#include "GraphDrawings.h"

#include <fmt/format.h>

#include <map>

namespace host::output {

namespace {

// What is in force, waits and does not resolve, on white paper.
constexpr const char* green = "#1B6E3C";
constexpr const char* amber = "#8A5A00";
constexpr const char* red = "#B3261E";
constexpr const char* ink = "#1F2933";

constexpr std::size_t lineLength = 34;

/// A text in lines that are not much longer than they need to be.
std::vector<std::string> wrapped(const std::string& text) {
  std::vector<std::string> lines(1);
  for (std::size_t at = 0; at < text.size();) {
    const std::size_t end = std::min(text.find(' ', at), text.size());
    const std::string word = text.substr(at, end - at);
    if (!lines.back().empty() && lines.back().size() + word.size() >= lineLength) lines.emplace_back();
    lines.back() += (lines.back().empty() ? "" : " ") + word;
    at = end + 1;
  }
  return lines;
}

/// The lines of a label, each as `each` writes it, with `end` between them.
template <class Each>
std::string linesOf(const Label& label, const char* end, Each each) {
  std::string text = each(label.title);
  if (label.note.empty()) return text;
  for (const std::string& line : wrapped(label.note)) text += (text.empty() ? "" : end) + each(line);
  return text;
}

const Json& fromOf(const Json& graph, const Json& edge) {
  return graph.at("nodes").at(edge.at("from").get<std::size_t>());
}

const char* colourOf(const std::string& state) {
  return state == "inForce" ? green : state == "waiting" ? amber : red;
}

// ---- Graphviz ----

/// Its strings know backslashes, and within labels also the entities of HTML.
std::string dotText(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (c == '&') {
      out += "&amp;";
      continue;
    }
    if (c == '"' || c == '\\') out += '\\';
    out += c;
  }
  return out;
}

std::string dotLabel(const Label& label) {
  return linesOf(label, "\\n", dotText);
}

std::string dotNode(const Json& node) {
  const std::string kind = node.at("kind");
  const bool usable = node.at("usable") == true;
  const char* style = kind == "interface" ? "filled" : kind == "end" ? "filled,dashed" : "rounded,filled";
  const char* fill = !usable ? "#FBE9E7" : kind == "interface" ? "#E3F0FA" : "#FFFFFF";
  std::string text =
      fmt::format(R"(  n{} [label="{}", style="{}", fillcolor="{}", class="{}{}")", node.at("id").dump(),
                  dotLabel(labelOf(node)), style, fill, kind, usable ? "" : " fault");
  if (!usable) text += fmt::format(R"(, color="{}", fontcolor="{}")", red, red);
  if (node.at("asked") == true) text += ", penwidth=3";
  if (node.at("count") != 1) text += ", peripheries=2";
  return text + "];\n";
}

std::string dotEdge(const Json& edge, const Json& from) {
  const std::string state = edge.at("state");
  std::string text = fmt::format(R"(  n{} -> n{} [label="{}", color="{}", fontcolor="{}", class="{}")",
                                 edge.at("from").dump(), edge.at("to").dump(), dotLabel(labelOf(edge, from)),
                                 colourOf(state), colourOf(state), state);
  if (state != "inForce") text += state == "waiting" ? ", style=dashed" : ", style=bold, arrowhead=tee";
  return text + "];\n";
}

// ---- Mermaid ----

/// What it may take for its own becomes a code of a character.
std::string mermaidText(const std::string& text) {
  constexpr std::string_view plain = " .,:/+-_()[]";
  std::string out;
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    const bool isPlain = byte >= 0x80 || std::isalnum(byte) || plain.find(c) != plain.npos;
    out += isPlain ? std::string(1, c) : fmt::format("#{};", byte);
  }
  return out;
}

std::string mermaidNode(const Json& node) {
  const std::string kind = node.at("kind");
  const char* open = kind == "interface" ? "([" : kind == "end" ? "{{" : "[";
  const char* close = kind == "interface" ? "])" : kind == "end" ? "}}" : "]";
  return fmt::format("  n{}{}\"{}\"{}{}\n", node.at("id").dump(), open,
                     linesOf(labelOf(node), "<br/>", mermaidText), close,
                     node.at("usable") == true ? "" : ":::fault");
}

std::string mermaidEdge(const Json& edge, const Json& from) {
  const std::string text = linesOf(labelOf(edge, from), "<br/>", mermaidText);
  const char* arrow = edge.at("state") == "inForce" ? "-->" : edge.at("state") == "waiting" ? "-.->" : "--x";
  return fmt::format("  n{} {}{} n{}\n", edge.at("from").dump(), arrow,
                     text.empty() ? "" : fmt::format("|\"{}\"|", text), edge.at("to").dump());
}

}  // namespace

std::string dotOf(const Json& graph) {
  std::string text = fmt::format(R"(digraph mrib {{
  graph [rankdir=LR, nslimit=4, nslimit1=4, bgcolor=transparent, nodesep=0.25, ranksep=0.6, fontname="Helvetica,Arial,sans-serif"];
  node [shape=box, color="{0}", fontcolor="{0}", fontname="Helvetica,Arial,sans-serif", fontsize=12];
  edge [fontname="Helvetica,Arial,sans-serif", fontsize=11];
)",
                                 ink);
  for (const Json& node : graph.at("nodes")) text += dotNode(node);
  for (const Json& edge : graph.at("edges")) text += dotEdge(edge, fromOf(graph, edge));
  return text + "}\n";
}

std::string mermaidOf(const Json& graph) {
  std::string text = "flowchart LR\n";
  for (const Json& node : graph.at("nodes")) text += mermaidNode(node);
  std::map<std::string, std::string> numbers;  // of edges, by colour
  std::size_t number = 0;
  for (const Json& edge : graph.at("edges")) {
    text += mermaidEdge(edge, fromOf(graph, edge));
    std::string& same = numbers[colourOf(edge.at("state"))];
    if (!same.empty()) same += ',';
    same += std::to_string(number++);
  }
  text += fmt::format("  classDef fault stroke:{0},color:{0}\n", red);
  for (const auto& [colour, same] : numbers) text += fmt::format("  linkStyle {} stroke:{}\n", same, colour);
  return text;
}

}  // namespace host::output
