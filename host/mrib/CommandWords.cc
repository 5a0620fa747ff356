#include "CommandWords.h"

#include <algorithm>

#include "Error.h"
#include "Escape.h"

namespace host {

namespace {

/// The one of `names` that a word is the beginning of; the word itself when there is none.
std::string inFull(const std::string& word, const std::vector<std::string>& names) {
  std::vector<std::string> meant;
  for (const std::string& name : names) {
    if (name == word) return word;
    if (!word.empty() && name.starts_with(word)) meant.push_back(name);
  }
  if (meant.empty()) return word;
  if (meant.size() == 1) return meant.front();
  std::string text = '"' + escaped(word) + "\" may be";
  for (const std::string& name : meant) text += (name == meant.front() ? " " : " or ") + name;
  throw Error(text);
}

/// As messages list them.
const std::vector<std::string>& commandNames() {
  static const std::vector<std::string> names{
      "route",   "rpf",       "unicast",        "unresolved",   "status",  "monitor", "watch",
      "reload",  "configure", "running-config", "check-config", "explain", "check",   "metrics",
      "inspect", "what-if",   "history",        "graph",        "report"};
  return names;
}

/// Whether a dash stands among short options, as in "-j-": to the library, it and the first one are two.
bool hidesTwoDashes(const std::string& word, const WordsAfter& wordsAfter) {
  if (word.starts_with("--")) return false;
  const auto isFlag = [&](char letter) { return wordsAfter({'-', letter}) == 0; };
  const auto other = std::find_if_not(word.begin() + 1, word.end(), isFlag);
  return other != word.end() && *other == '-';
}

}  // namespace

std::vector<std::string> commandInFull(std::vector<std::string> words, const WordsAfter& wordsAfter) {
  auto at = words.begin();
  bool isClear = true;  // no option before it that nobody knows, and that it might belong to
  for (; at != words.end() && at->starts_with('-') && *at != "--"; ++at) {
    if (hidesTwoDashes(*at, wordsAfter))
      throw Error("\"" + escaped(*at) + "\" is no option (--help lists what there is)");
    const std::optional<int> follow = wordsAfter(*at);
    isClear = isClear && (follow || at->find('=') != at->npos);
    if (follow.value_or(0) > 0 && at + 1 != words.end()) ++at;
  }
  if (at != words.end() && *at == "--") at = words.erase(at);  // the word behind it is the command, or none
  if (at == words.end()) return words;
  std::vector<std::string> first = commandNames();
  first.push_back("show");
  *at = inFull(*at, first);
  const bool isCommand = std::find(first.begin(), first.end(), *at) != first.end();
  if (!isCommand && isClear)
    throw Error("there is no command \"" + escaped(*at) + "\" (--help lists what there is)");
  if (*at != "show") return words;
  const auto wordAt = [&](std::ptrdiff_t i) { return at + i < words.end() ? *(at + i) : std::string(); };
  if (inFull(wordAt(1), {"ip"}) != "ip")
    throw Error("show: expected \"ip rpf ADDRESS\" or \"ip mroute-static\"");
  const std::string what = inFull(wordAt(2), {"rpf", "mroute-static"});
  if (what != "rpf" && what != "mroute-static") {
    throw Error("show ip: expected \"rpf ADDRESS\" or \"mroute-static\"");
  }
  at = words.erase(at, at + 2);
  *at = what == "rpf" ? "rpf" : "route";
  if (what == "mroute-static") words.insert(at + 1, {"--type", "static", "--unresolved"});
  return words;
}

}  // namespace host
