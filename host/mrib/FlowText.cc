#include <fmt/format.h>

#include <map>
#include <utility>

#include "Escape.h"
#include "Text.h"

namespace host::text {

namespace {

/// The verdicts as people say them.
std::string wordsFor(const std::string& verdict) {
  static const std::map<std::string, std::string> words{{"notFollowed", "not followed"},
                                                        {"noRpf", "no RPF"},
                                                        {"anySource", "any source"},
                                                        {"registered", "register"},
                                                        {"otherTable", "other table"}};
  const auto at = words.find(verdict);
  return at == words.end() ? escaped(verdict) : at->second;
}

std::string addressText(const Json& address) {
  return address.is_null() ? "*" : escaped(address.get<std::string>());
}

std::string namesText(const Json& names) {
  std::vector<std::string> list;
  for (const Json& name : names) list.push_back(escaped(name.get<std::string>()));
  return list.empty() ? "-" : fmt::format("{}", fmt::join(list, ","));
}

/// "14 (+4)".
std::string countText(const Json& flow, const char* member) {
  const Json& growth = flow.at("growth");
  const bool grew = !growth.is_null() && growth.at(member) != 0;
  return flow.at(member).dump() + (grew ? fmt::format(" (+{})", growth.at(member).dump()) : "");
}

}  // namespace

std::string FlowTable::part(const Json& flows) {
  std::vector<Columns<7>::Row> rows;
  std::vector<std::string> reasons;
  if (!flows.empty() && !std::exchange(begun_, true)) {
    rows.push_back({"Verdict", "Source", "Group", "From", "MRIB", "Packets", "Wrong"});
    reasons.emplace_back();
  }
  for (const Json& flow : flows) {
    const Json& from = flow.at("incoming");
    rows.push_back({wordsFor(flow.at("verdict")), addressText(flow.at("source")),
                    addressText(flow.at("group")), from.is_null() ? "-" : escaped(from.get<std::string>()),
                    namesText(flow.at("expected")), countText(flow, "packets"),
                    countText(flow, "wrongPackets")});
    reasons.push_back(flow.at("why").get<std::string>());
  }
  std::string text;
  const auto lines = columns_.lines(rows);
  for (std::size_t i = 0; i < lines.size(); ++i) {
    text += lines[i];
    if (!reasons[i].empty()) text += "  " + reasons[i] + '\n';
  }
  return text;
}

std::size_t flowsIn(const Json& summary) {
  std::size_t count = 0;
  for (const auto& [verdict, flows] : summary.items()) count += flows.get<std::size_t>();
  return count;
}

std::string ofSummary(const Json& summary, const std::string& selection) {
  const std::size_t count = flowsIn(summary);
  if (count == 0) {
    const std::string of = selection.empty() ? "" : " of " + escaped(selection);
    return "no flow" + of + " is in the kernel's multicast forwarding cache\n";
  }
  std::string text;
  for (const auto& [verdict, flows] : summary.items()) {
    if (flows != 0)
      text += fmt::format("{} {} {}", text.empty() ? ":" : ",", flows.dump(), wordsFor(verdict));
  }
  return fmt::format("\n{} flow{}{}\n", count, count == 1 ? "" : "s", text);
}

}  // namespace host::text
