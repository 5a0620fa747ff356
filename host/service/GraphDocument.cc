#include "GraphDocument.h"

#include "Escape.h"
#include "GraphGroups.h"

namespace host::documents {

namespace {

std::string_view nameOf(Graph::Node::Kind kind) {
  constexpr std::string_view names[] = {"configured", "connected", "unicast", "interface", "end"};
  return names[static_cast<std::size_t>(kind)];
}

std::string_view nameOf(Graph::Edge::State state) {
  constexpr std::string_view names[] = {"inForce", "waiting", "unresolved"};
  return names[static_cast<std::size_t>(state)];
}

/// What is empty is not there.
Json textOrNull(const std::string& text) {
  return text.empty() ? Json() : Json(jsonText(text));
}

Json ofNode(const Graph::Node& node, std::size_t id) {
  Json json;
  json["id"] = id;
  json["kind"] = nameOf(node.kind);
  json["usable"] = node.usable;
  json["asked"] = node.asked;
  json["count"] = node.count;
  json["names"] = Json::array();
  for (const std::string& name : node.names) json["names"].push_back(jsonText(name));
  return json;
}

Json ofEdge(const Graph::Edge& edge) {
  Json json;
  json["from"] = edge.from;
  json["to"] = edge.to;
  json["state"] = nameOf(edge.state);
  json["count"] = edge.count;
  json["rpf"] = textOrNull(edge.rpf);
  json["preference"] = edge.preference == 0 ? Json() : Json(edge.preference);
  json["place"] = textOrNull(edge.place);
  json["reason"] = edge.reason ? Json(documents::nameOf(*edge.reason)) : Json();
  json["why"] = textOrNull(edge.why);
  return json;
}

}  // namespace

std::string membersOf(const Graph& graph, std::size_t most) {
  const Graph drawn = grouped(graph, most);
  std::string text = "\"all\":" + std::to_string(graph.nodes.size()) + ",\"nodes\":[";
  for (std::size_t i = 0; i < drawn.nodes.size(); ++i) {
    if (i != 0) text += ',';
    text += textOf(ofNode(drawn.nodes[i], i));
  }
  text += "],\"edges\":[";
  for (const Graph::Edge& edge : drawn.edges) {
    if (&edge != drawn.edges.data()) text += ',';
    text += textOf(ofEdge(edge));
  }
  return text + ']';
}

}  // namespace host::documents
