#include <fmt/format.h>

#include <algorithm>

#include "CommandTable.h"
#include "Escape.h"
#include "Output.h"
#include "Text.h"
#include "WhoAnswers.h"

// What would be.

namespace host::commands {

namespace {

/// An argument of several words ends with a change; other words go on to make one. A comma behind a word ends
/// it, too.
std::vector<std::string> changesOf(const std::vector<std::string>& arguments) {
  constexpr std::string_view end = ", ";
  std::string all;
  for (const std::string& argument : arguments) {
    const bool isWhole = argument.find(' ') != argument.npos;
    all += isWhole ? fmt::format("{}{}{}", end, argument, end) : argument + ' ';
  }
  std::vector<std::string> changes;
  for (std::size_t at = 0; at < all.size();) {
    const std::size_t stop = std::min(all.find(end, at), all.size());
    const std::string change = all.substr(at, stop - at);
    if (change.find_first_not_of(' ') != change.npos) changes.push_back(configurationText(change));
    at = stop + end.size();
  }
  return changes;
}

/// All parts of an answer in lists, joined.
Json wholeOf(Backend& backend, const std::string& method, const Json& parameters) {
  Json whole;
  backend.stream(method, parameters, [&](const Json& part) {
    if (whole.is_null()) {
      whole = part;
      return true;
    }
    for (const auto& [name, value] : part.items()) {
      if (value.is_array()) whole[name].insert(whole[name].end(), value.begin(), value.end());
    }
    return true;
  });
  return whole;
}

std::string titled(const char* title, const std::string& text) {
  return text.empty() ? "" : std::string(title) + ":\n" + text;
}

std::string changesText(const Json& changes) {
  std::string text;
  for (const Json& change : changes) text += text::ofChange(change, false);
  return text;
}

std::string textOf(const Json& answer) {
  std::string flows;
  for (const Json& flow : answer.at("flows")) flows += text::ofFlow(flow);
  std::string unicast = changesText(answer.at("unicast"));
  if (const U64 left = answer.at("unicastLeft").get<U64>(); left != 0) {
    unicast += fmt::format("and {} more prefixes over these links were not looked at\n", left);
  }
  std::string text = changesText(answer.at("changes"));
  if (text.empty()) text = "the MRIB stays as it is\n";
  text += titled("Not resolved then", text::ofUnresolved(answer.at("unresolved")));
  text += titled("Resolved then", text::ofUnresolved(answer.at("resolved")));
  text += titled("Flows", flows);
  text += titled("Unicast table", unicast);
  return answer.at("stale") == true ? text + "This may be out of date: the daemon is reading the kernel.\n"
                                    : text;
}

// ---- Links by what depends on them ----

constexpr const char* weights[] = {"flowsDying", "lost", "flowsMoving", "changed", "unresolved", "unicast"};

bool isHeavier(const Json& a, const Json& b) {
  for (const char* name : weights) {
    if (a.at(name) != b.at(name)) return a.at(name) > b.at(name);
  }
  return false;
}

std::string linksText(const Json& links) {
  std::string text =
      fmt::format("{:<16} {:>10} {:>12} {:>11} {:>14} {:>10} {:>8}  {}\n", "Interface down", "Flows die",
                  "Flows move", "MRIB lost", "MRIB changed", "Unresolved", "Unicast", "Prefixes");
  for (const Json& link : links) {
    std::string prefixes;
    for (const Json& prefix : link.at("prefixes"))
      prefixes += (prefixes.empty() ? "" : ", ") + prefix.get<std::string>();
    const auto number = [&](const char* name) { return link.at(name).get<U64>(); };
    if (number("lost") + number("changed") > link.at("prefixes").size()) prefixes += ", ...";
    const std::string line = fmt::format(
        "{:<16} {:>10} {:>12} {:>11} {:>14} {:>10} {:>8}  {}",
        escaped(link.at("interface").get<std::string>()), number("flowsDying"), number("flowsMoving"),
        number("lost"), number("changed"), number("unresolved"), number("unicast"), prefixes);
    text += line.substr(0, line.find_last_not_of(' ') + 1) + '\n';
  }
  return text;
}

int rankLinks(const Request& request, Backend& backend) {
  Json answer = wholeOf(backend, "org.mrib.RankLinks", Json::object());
  Json& links = answer.at("links");
  std::stable_sort(links.begin(), links.end(), isHeavier);
  print(request.json ? dump(documentOf(backend, answer), 2) : backend.name() + "\n\n" + linksText(links));
  return codeOf(request, answer.at("stale") == true);
}

}  // namespace

int whatIf(const Request& request) {
  const std::vector<std::string> changes = changesOf(request.arguments);
  if (changes.empty() != request.eachLink) {
    throw UsageError("what-if needs changes, such as \"link eth1 down\", or else --each-link");
  }
  const auto backend = backendFor(request);
  if (request.eachLink) return rankLinks(request, *backend);
  const Json answer = wholeOf(*backend, "org.mrib.WhatIf", {{"changes", changes}});
  print(request.json ? dump(documentOf(*backend, answer), 2) : backend->name() + "\n\n" + textOf(answer));
  return codeOf(request, answer.at("stale") == true);
}

}  // namespace host::commands
