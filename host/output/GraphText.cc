#include "GraphText.h"

#include <fmt/format.h>

#include <map>

#include "Escape.h"

namespace host::output {

namespace {

std::string textOf(const Json& text) {
  return escaped(text.get_ref<const std::string&>());
}

/// What one node of each kind is, and what several are.
const std::map<std::string, std::pair<std::string, std::string>>& words() {
  static const std::map<std::string, std::pair<std::string, std::string>> all{
      {"configured", {"configured prefix", "configured prefixes"}},
      {"connected", {"connected route", "connected routes"}},
      {"unicast", {"unicast route", "unicast routes"}},
      {"interface", {"interface", "interfaces"}},
      {"end", {"RPF that leads nowhere", "RPFs that lead nowhere"}}};
  return all;
}

/// Of lines that are drawn as one, whose reasons differ in what they name.
std::string commonReason(const std::string& reason) {
  static const std::map<std::string, std::string> texts{
      {"noInterface", "there are no such interfaces"},
      {"noAddress", "the interfaces have no connected route"},
      {"noRoute", "no MRIB routes lead there"},
      {"onlyDefault", "only the default route leads there, which resolves nothing"},
      {"itself", "they would resolve through themselves"},
      {"coveredBy", "they resolve through what covers the prefixes themselves"},
      {"heldBack", "held back: they could resolve through themselves in a circle"},
      {"waiting", "better preferences are in force"},
      {"unsettled", "they resolve, and take their places when the MRIB is settled"}};
  return texts.at(reason);
}

std::string faultOf(const Json& node) {
  if (node.at("usable") == true) return "";
  const std::string kind = node.at("kind");
  return kind == "interface" ? "down" : kind == "end" ? "" : "no route";
}

}  // namespace

std::string digitsOf(std::size_t count) {
  std::string digits = std::to_string(count);
  for (std::size_t at = digits.size(); at > 3; at -= 3) digits.insert(at - 3, 1, ',');
  return digits;
}

std::string counted(std::size_t count, const std::string& one, const std::string& several) {
  return digitsOf(count) + ' ' + (count == 1 ? one : several.empty() ? one + 's' : several);
}

Label labelOf(const Json& node) {
  const auto& [one, several] = words().at(node.at("kind"));
  const std::size_t count = node.at("count");
  const std::string fault = faultOf(node);
  const auto with = [&](const std::string& text) {
    return text + (text.empty() || fault.empty() ? "" : ", ") + fault;
  };
  if (count == 1) {
    const std::string kind = node.at("kind");
    return {textOf(node.at("names")[0]), with(kind == "connected" || kind == "unicast" ? kind : "")};
  }
  std::string names;
  for (const Json& name : node.at("names")) names += (names.empty() ? "" : ", ") + textOf(name);
  return {with(counted(count, one, several)), names + (node["names"].size() < count ? " ..." : "")};
}

Label labelOf(const Json& edge, const Json& from) {
  Label label;
  const bool isLine = !edge.at("reason").is_null() || from.at("kind") == "configured";
  const std::size_t count = edge.at("count");
  if (!edge.at("rpf").is_null()) label.title = textOf(edge["rpf"]);
  if (label.title.empty() && count > 1) label.title = counted(count, isLine ? "line" : "way");
  if (!edge.at("preference").is_null()) label.title += fmt::format(" [{}]", edge["preference"].dump());
  if (edge.at("state") == "waiting") {
    label.note = "waits";
  } else if (edge.at("state") == "unresolved") {
    label.note = edge.at("why").is_null() ? commonReason(edge.at("reason")) : textOf(edge["why"]);
  }
  return label;
}

std::string summaryOf(const Json& graph) {
  std::map<std::string, std::pair<std::size_t, std::size_t>> kinds;  // all, and those that aren't usable
  for (const Json& node : graph.at("nodes")) {
    auto& [all, faulty] = kinds[node.at("kind")];
    all += node.at("count").get<std::size_t>();
    if (node.at("usable") == false) faulty += node["count"].get<std::size_t>();
  }
  std::map<std::string, std::size_t> states;
  for (const Json& edge : graph.at("edges")) states[edge.at("state")] += edge.at("count").get<std::size_t>();
  std::string text;
  for (const auto& [kind, fault] :
       {std::pair{"configured", "without a route"}, {"connected", ""}, {"interface", "down"}}) {
    const auto& [all, faulty] = kinds[kind];
    if (all == 0) continue;
    const auto& [one, several] = words().at(kind);
    text += (text.empty() ? "" : ", ") + counted(all, one, several);
    if (faulty) text += fmt::format(" ({} {})", faulty, fault);
  }
  if (text.empty()) return "no route, and none is configured";
  if (states["waiting"]) text += "; " + counted(states["waiting"], "line waits", "lines wait");
  if (states["unresolved"])
    text += "; " + counted(states["unresolved"], "line does", "lines do") + " not resolve";
  return text;
}

}  // namespace host::output
