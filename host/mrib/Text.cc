#include "Text.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "Escape.h"
#include "Zan/Types.h"

namespace host::text {

namespace {

std::string textOf(const Json& value) {
  if (value.is_null()) return "-";
  return value.is_string() ? escaped(value.get_ref<const std::string&>()) : value.dump();
}

bool isUsable(const Json& route) {
  const std::string type = route.at("type");
  return type == "connected" || type == "static" || type == "attached" || type == "local" ||
         type == "gateway";
}

std::string hopText(const Json& route, const Json& via) {
  if (!via.at("nextHop").is_null()) return textOf(via["nextHop"]);
  return route.at("type") == "local" ? "own address" : "attached";
}

/// "via 10.0.1.7 on eth0", of several: separated by commas.
std::string viasText(const Json& route) {
  std::string text;
  for (const Json& via : route.at("vias")) {
    if (!text.empty()) text += ", ";
    text += via.at("nextHop").is_null() ? hopText(route, via) : "via " + hopText(route, via);
    text += " on " + textOf(via.at("interface"));
  }
  if (!text.empty()) return text;
  return isUsable(route) ? "no next hop" : textOf(route.at("type"));
}

}  // namespace

std::string ofRoute(const Json& route) {
  if (route.is_null()) return "no route";
  return fmt::format("{} [{}] {}", textOf(route.at("type")), textOf(route.at("preference")), viasText(route));
}

std::vector<RouteTable::Row> RouteTable::rowsOf(const Json& route) {
  Row row{textOf(route.at("prefix")), textOf(route.at("type")), textOf(route.at("preference"))};
  if (route.contains("protocol")) {
    row[3] = textOf(route["protocol"]);
    row[4] = textOf(route["metric"]);
  }
  std::vector<Row> rows;
  for (const Json& via : route.at("vias")) {
    row[5] = hopText(route, via);
    row[6] = textOf(via.at("interface"));
    rows.push_back(std::exchange(row, {}));
  }
  if (!rows.empty()) return rows;
  row[5] = isUsable(route) ? "none" : "-";
  row[6] = "-";
  return {row};
}

std::string RouteTable::part(const Json& routes) {
  std::vector<Row> rows;
  if (routes.empty()) return "";
  if (!std::exchange(begun_, true)) {
    const bool unicast = routes[0].contains("protocol");
    rows.push_back({"Prefix", "Type", "Pref", unicast ? "Protocol" : "", unicast ? "Metric" : "", "Next hop",
                    "Interface"});
  }
  for (const Json& route : routes) {
    for (Row& row : rowsOf(route)) rows.push_back(std::move(row));
  }
  std::string text;
  for (const std::string& line : columns_.lines(rows)) text += line;
  return text;
}

std::string ofAnswer(const Json& answer) {
  const std::string source = textOf(answer.at("source"));
  const Json& route = answer.at("route");
  std::string text = "RPF information for " + source;
  if (answer.at("status") == "noRoute") return text + ": no route\n";
  if (answer.at("status") == "unreachable") text += ": unreachable";
  text += '\n';
  for (const Json& via : route.at("vias")) {
    text += "  RPF interface: " + textOf(via.at("interface")) + '\n';
    const bool direct = via.at("nextHop").is_null();
    const std::string hop =
        route.at("type") == "local" ? source + " - own address" : source + " - directly connected";
    text += "  RPF neighbor: " + (direct ? hop : textOf(via.at("nextHop"))) + '\n';
  }
  if (route.at("vias").empty()) text += "  RPF interface: none\n";
  text += "  RPF route/mask: " + textOf(route.at("prefix")) + '\n';
  const bool multicast = answer.at("table") == "mrib";
  text +=
      fmt::format("  RPF type: {} ({})\n", multicast ? "multicast" : "unicast",
                  multicast || !isUsable(route) ? textOf(route.at("type")) : textOf(route.at("protocol")));
  return text + "  RPF preference: " + textOf(route.at("preference")) + '\n';
}

namespace {

std::string unresolvedLine(const Json& u) {
  return fmt::format("  {} {} {} ({}): {}\n", textOf(u.at("prefix")), textOf(u.at("rpf")),
                     textOf(u.at("preference")), u.at("place").get<std::string>(),
                     u.at("why").get<std::string>());
}

}  // namespace

std::string ofUnresolved(const Json& unresolved) {
  std::string text;
  for (const Json& u : unresolved) text += unresolvedLine(u);
  return text;
}

bool isNotExported(const Json& unresolved) {
  return unresolved.at("reason") == "notExportable" || unresolved.at("reason") == "refusedByKernel";
}

std::string UnresolvedList::part(const Json& unresolved) {
  std::string text;
  for (const Json& u : unresolved) {
    const bool isExport = isNotExported(u);
    if (!std::exchange(isExport ? isExportTitled_ : isTitled_, true))
      text += '\n' + (isExport ? "In force, but not, or not wholly, exported:\n" : title_);
    text += unresolvedLine(u);
  }
  return text;
}

/// Its texts are escaped already.
std::string ofExplanation(const Json& explanation) {
  const Json& steps = explanation.at("steps");
  const std::size_t width = std::to_string(steps.size()).size();
  std::string text;
  for (const Json& step : steps) {
    text += fmt::format("{:>{}}. {:{}}{}\n", step.at("number").get<U64>(), width, "",
                        step.at("depth").get<std::size_t>() * 2, step.at("text").get<std::string>());
  }
  return text + '\n' + explanation.at("conclusion").get<std::string>() + '\n';
}

std::string ofStatus(const Json& status) {
  const auto line = [](std::string_view name, const std::string& value) {
    return fmt::format("{:<22}{}\n", name, value);
  };
  const Json& mirror = status.at("mirror");
  std::string resyncs;
  for (const auto& [reason, count] : mirror.at("resyncs").items()) {
    resyncs += (resyncs.empty() ? "" : ", ") + escaped(reason) + ' ' + count.dump();
  }
  const U64 seconds = status.at("uptime").get<U64>();
  std::string text = line("version", textOf(status.at("version")));
  text += line("routes from", textOf(status.at("source")));
  text += line("uptime", fmt::format("{}d {:02}:{:02}:{:02}", seconds / 86400, seconds / 3600 % 24,
                                     seconds / 60 % 60, seconds % 60));
  text += line("generation", textOf(status.at("generation")) + (status.at("stale") == true ? ", stale" : ""));
  text += line("rpf lookup mode", textOf(status.at("lookupMode")));
  text += line("MRIB routes", textOf(status.at("routes")));
  text += line("configured routes",
               textOf(status.at("configured")) + ", " + textOf(status.at("unresolved")) + " not resolved");
  text += line("healed by settling", textOf(status.at("healed")));
  text += line("links", textOf(status.at("links")));
  text += line("unicast routes", textOf(status.at("unicastRoutes")));
  text += line("kernel read", resyncs.empty() ? "never" : resyncs);
  text += line("last reading", fmt::format("{:.1f} ms", mirror.at("lastDuration").get<double>() * 1000));
  text += line("silent changes", textOf(mirror.at("corrected")) + " corrected");
  text += line("lost notifications", textOf(mirror.at("overruns")));
  text += line("foreign messages", textOf(mirror.at("foreign")));
  if (!status.contains("export") || status.at("export").is_null()) return text;
  const Json& exported = status.at("export");
  const auto count = [&](const char* name) { return textOf(exported.at(name)); };
  return text +
         line("exported",
              fmt::format("to table {} for {}: {} routes, {} refused, {} not exportable", count("table"),
                          count("for"), count("routes"), count("refused"), count("notExportable"))) +
         line("exported writes", fmt::format("{}, of these {} put right what others had done",
                                             count("written"), count("putRight")));
}

std::string ofChange(const Json& change, bool settled) {
  const Json& before = change.at("before");
  const Json& after = change.at("after");
  std::string text = before.is_null() ? "+ " : after.is_null() ? "- " : "~ ";
  text += textOf(change.at("prefix")) + ' ' + ofRoute(after.is_null() ? before : after);
  if (!before.is_null() && !after.is_null()) text += ", was " + ofRoute(before);
  return text + (settled ? " (settled)\n" : "\n");
}

std::string ofWatched(const Json& answer) {
  const Json& route = answer.at("route");
  std::string text = textOf(answer.at("source")) + ": ";
  if (route.is_null()) return text + "no route\n";
  return text + fmt::format("{} by {} {} [{}]\n", viasText(route), textOf(answer.at("table")),
                            textOf(route.at("prefix")), textOf(route.at("preference")));
}

std::string ofWatchedPrefix(const Json& watched) {
  const Json& route = watched.at("route");
  return textOf(watched.at("prefix")) + (route.is_null() ? ": no route" : ' ' + ofRoute(route)) + '\n';
}

std::string ofFlow(const Json& change) {
  return fmt::format("  {} ({}, {}) in by {}: {} then\n", change.at("verdict").get<std::string>(),
                     textOf(change.at("source")), textOf(change.at("group")), textOf(change.at("interface")),
                     ofRoute(change.at("after")));
}

namespace {

Json neighborOf(const Json& line) {
  return line.value("neighbor", Json());
}

std::string lineText(const Json& line) {
  const Json neighbor = neighborOf(line);
  return fmt::format("ip mroute {} {}{} {} ({})", textOf(line.at("prefix")), textOf(line.at("rpf")),
                     neighbor.is_null() ? "" : " neighbor " + textOf(neighbor), textOf(line.at("preference")),
                     line.at("place").get<std::string>());
}

/// What was otherwise in a line with the same prefix and RPF.
std::string wasText(const Json& before, const Json& after) {
  std::string text;
  if (before.at("preference") != after.at("preference"))
    text += ", was preference " + textOf(before["preference"]);
  const Json neighbor = neighborOf(before);
  if (neighbor == neighborOf(after)) return text;
  return text + (neighbor.is_null() ? ", had no neighbor" : ", was neighbor " + textOf(neighbor));
}

}  // namespace

std::string ofDifference(const Json& difference) {
  std::string text;
  for (const Json& line : difference.at("added")) text += "+ " + lineText(line) + '\n';
  for (const Json& line : difference.at("gone")) text += "- " + lineText(line) + '\n';
  for (const Json& change : difference.at("changed")) {
    const Json& after = change.at("after");
    text += "~ " + lineText(after) + wasText(change.at("before"), after) + '\n';
  }
  if (const Json& mode = difference.at("lookupMode"); !mode.is_null()) {
    text += fmt::format("~ ip multicast rpf-lookup-mode {}, was {}\n", textOf(mode.at("after")),
                        textOf(mode.at("before")));
  }
  if (text.empty()) text = "no difference\n";
  return text + ofConsequences(difference);
}

std::string ofConsequences(const Json& difference) {
  std::string text;
  if (!difference.at("unresolved").empty())
    text += "Not resolved:\n" + ofUnresolved(difference["unresolved"]);
  for (const Json& warning : difference.at("warnings"))
    text += "warning: " + warning.get<std::string>() + '\n';
  if (const U64 left = difference.at("left").get<U64>(); left != 0)
    text += fmt::format("and {} more changes, lines that do not resolve, and warnings\n", left);
  return text;
}

}  // namespace host::text
