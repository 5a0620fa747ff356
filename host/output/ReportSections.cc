#include "ReportSections.h"

#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <ctime>
#include <map>

#include "GraphText.h"
#include "Html.h"
#include "Picture.h"

namespace host::output::sections {

namespace {

std::string nameOf(const Json& value) {
  if (value.is_null()) return "";
  return value.is_string() ? html::name(value.get_ref<const std::string&>()) : html::text(value.dump());
}

std::string codeOf(const Json& value) {
  return value.is_null() ? "" : "<code>" + nameOf(value) + "</code>";
}

std::string sentenceOf(const Json& value) {
  return value.is_null() ? "" : html::text(value.get_ref<const std::string&>());
}

/// A sentence that needs some room in a table, however narrow the page is.
std::string whyOf(const Json& value) {
  return "<span class=\"why\">" + sentenceOf(value) + "</span>";
}

std::string paragraph(const std::string& html) {
  return "<p>" + html + "</p>\n";
}

/// The ways of a route, a line each.
std::string waysOf(const Json& route) {
  std::string text;
  for (const Json& via : route.at("vias")) {
    if (!text.empty()) text += "<br/>";
    text += via.at("nextHop").is_null() ? "attached" : codeOf(via["nextHop"]);
    text += " on " + (via.at("interface").is_null() ? "no interface" : codeOf(via["interface"]));
  }
  return text;
}

/// A route, or that there is none.
std::string wayOf(const Json& route) {
  return route.is_null() ? "no route" : waysOf(route) + " [" + nameOf(route.at("preference")) + ']';
}

/// A time in seconds since 1970.
std::string timeOf(const Json& seconds) {
  const auto time = static_cast<std::time_t>(seconds.get<double>());
  return fmt::format("{:%Y-%m-%d %H:%M:%S}", fmt::localtime(time));
}

html::Table linesOf(const std::string& caption, const ReportContent::List& lines) {
  html::Table table(caption, {"Prefix", "Why", "RPF", "Preference", "Written in"});
  for (const Json& line : lines.elements) {
    table.row({codeOf(line.at("prefix")), whyOf(line.at("why")), codeOf(line.at("rpf")),
               nameOf(line.at("preference")), sentenceOf(line.at("place"))});
  }
  table.countIs(lines.count);
  return table;
}

struct VerdictWords {
  const char* kind;
  const char* words;
};

const VerdictWords& wordsOf(const std::string& verdict) {
  static const std::map<std::string, VerdictWords> all{{"wrong", {"bad", "wrong"}},
                                                       {"notFollowed", {"bad", "not followed"}},
                                                       {"dropped", {"bad", "dropped"}},
                                                       {"noRpf", {"bad", "no RPF"}},
                                                       {"unresolved", {"fair", "unresolved"}},
                                                       {"right", {"good", "right"}},
                                                       {"anySource", {"plain", "any source"}},
                                                       {"registered", {"plain", "registered"}},
                                                       {"otherTable", {"plain", "other table"}},
                                                       {"gone", {"fair", "gone"}}};
  static const VerdictWords unknown{"plain", "?"};
  const auto known = all.find(verdict);
  return known == all.end() ? unknown : known->second;
}

// ---- The summary ----

std::string tile(const std::string& what, std::size_t count, const char* kind = "plain") {
  return fmt::format("<div class=\"{}\"><dt>{}</dt><dd>{}</dd></div>\n", kind, what, digitsOf(count));
}

std::size_t wrongFlows(const ReportContent& content) {
  std::size_t count = 0;
  if (!content.check.contains("summary")) return 0;
  for (const auto& [verdict, number] : content.check["summary"].items()) {
    if (wordsOf(verdict).kind == std::string_view("bad")) count += number.get<std::size_t>();
  }
  return count;
}

std::string finding(const char* kind, const char* word, const std::string& html) {
  return "<li>" + html::badge(kind, word) + ' ' + html + "</li>\n";
}

std::string findingsOf(const ReportContent& content) {
  std::string list;
  const std::size_t unresolved = content.status.at("unresolved");
  const std::size_t wrong = wrongFlows(content);
  if (wrong != 0) {
    list += finding("bad", "wrong",
                    fmt::format("<a href=\"#flows\">{} not forwarded as the MRIB says</a>",
                                counted(wrong, "flow is", "flows are")));
  }
  if (unresolved != 0) {
    list += finding(
        "bad", "not resolved",
        fmt::format("<a href=\"#unresolved\">{}</a>",
                    counted(unresolved, "configured route does", "configured routes do") + " not resolve"));
  }
  if (content.notExported.count != 0) {
    list += finding("bad", "not exported",
                    fmt::format("<a href=\"#unresolved\">{} not, or not wholly, in the exported table</a>",
                                counted(content.notExported.count, "route is", "routes are")));
  }
  if (content.status.at("stale") == true) {
    list += finding("fair", "stale", "the daemon was reading the kernel: this may be out of date");
  }
  constexpr std::size_t mostWarnings = 10;
  const Json& warnings = content.warnings.elements;
  for (std::size_t i = 0; i < std::min(warnings.size(), mostWarnings); ++i) {
    list += finding("fair", "odd", sentenceOf(warnings[i]));
  }
  if (content.warnings.count > mostWarnings) {
    list += "<li>and " + counted(content.warnings.count - mostWarnings, "more warning") + "</li>\n";
  }
  if (list.empty()) list = finding("good", "good", "Nothing is wrong that mrib can see.");
  return "<ul class=\"findings\">\n" + list + "</ul>\n";
}

}  // namespace

std::string summary(const ReportContent& content) {
  const Json& status = content.status;
  const std::size_t unresolved = status.at("unresolved");
  const std::size_t wrong = wrongFlows(content);
  std::string tiles = tile("MRIB routes", status.at("routes")) + tile("configured", status.at("configured")) +
                      tile("not resolved", unresolved, unresolved ? "bad" : "good");
  if (content.check.contains("summary")) {
    tiles += tile("flows", content.flows.count) + tile("flows wrong", wrong, wrong ? "bad" : "good");
  }
  tiles += tile("interfaces", status.at("links")) + tile("unicast routes", status.at("unicastRoutes"));
  return "<dl class=\"tiles\">\n" + tiles + "</dl>\n" + findingsOf(content);
}

// ---- Lists ----

std::string routes(const ReportContent& content) {
  if (content.routes.elements.empty()) return paragraph("The MRIB is empty.");
  html::Table table("Which way packets from these sources must come in",
                    {"Sources in", "Comes in by", "Type", "Preference"});
  for (const Json& route : content.routes.elements) {
    table.row({codeOf(route.at("prefix")), waysOf(route), nameOf(route.at("type")),
               nameOf(route.at("preference"))});
  }
  table.countIs(content.routes.count);
  return table.html();
}

std::string unresolved(const ReportContent& content) {
  const bool isAny = content.status.at("configured") != 0;
  std::string text = content.unresolved.count != 0
                         ? linesOf("Configured routes that do not resolve", content.unresolved).html()
                     : isAny ? paragraph(html::badge("good", "good") + " All configured routes are resolved.")
                             : paragraph("No route is configured.");
  if (content.notExported.count != 0) {
    text += linesOf("In force, but not, or not wholly, exported", content.notExported).html();
  }
  if (content.waiting.count == 0) return text;
  return text +
         linesOf("Configured routes that wait behind a better preference, which is no error", content.waiting)
             .html();
}

std::string flows(const ReportContent& content) {
  if (!content.check.contains("summary")) {
    const std::string why = content.check.value("error", std::string());
    return paragraph("Not compared with the kernel's multicast forwarding" +
                     (why.empty() ? "." : ": " + html::text(why) + '.'));
  }
  if (content.flows.count == 0) return paragraph("The kernel forwards no multicast.");
  html::Table table("The kernel's multicast forwarding against the MRIB, the worst first",
                    {"Flow", "Verdict", "Comes in by", "The MRIB says", "Packets", "Wrong interface", "Why"});
  for (const Json& flow : content.flows.elements) {
    std::string expected;
    for (const Json& interface : flow.at("expected"))
      expected += (expected.empty() ? "" : ", ") + codeOf(interface);
    const auto address = [&](const char* key) { return flow.at(key).is_null() ? "any" : codeOf(flow[key]); };
    const VerdictWords& verdict = wordsOf(flow.at("verdict"));
    table.row({address("source") + " &#8594; " + address("group"), html::badge(verdict.kind, verdict.words),
               codeOf(flow.at("incoming")), expected, nameOf(flow.at("packets")),
               nameOf(flow.at("wrongPackets")), whyOf(flow.at("why"))});
  }
  table.countIs(content.flows.count);
  return table.html();
}

// ---- The picture ----

std::string graph(const ReportContent& content) {
  const std::string summary = html::text(summaryOf(content.graph)) + '.';
  const std::string tree = html::listing("What leads where, as text", content.tree);
  if (content.picture.empty()) {
    return paragraph(summary) + tree + "<p class=\"more\">No picture: " + html::text(content.noPicture) +
           ".</p>\n";
  }
  constexpr const char* legend =
      "Green is in force, dashed waits behind a better preference, red with a bar does not resolve.";
  return fmt::format(
      "<figure>\n<div class=\"scroll picture\" role=\"region\" aria-label=\"Picture\" "
      "tabindex=\"0\">{}</div>\n"
      "<figcaption id=\"graph-caption\">{} {}</figcaption>\n</figure>\n"
      "<details><summary>The same as text</summary>\n{}</details>\n",
      inlineSvg(content.picture, "graph-caption"), summary, legend, tree);
}

// ---- The history ----

std::string history(const ReportContent& content) {
  const Json& history = content.history;
  if (!history.contains("begin")) return paragraph(html::text(history.value("error", "It is not known.")));
  const std::string begin =
      "since " + timeOf(history["begin"].at("time")) + " (" + sentenceOf(history["begin"].at("cause")) + ").";
  if (content.changes.count == 0) return paragraph("No change of the MRIB " + begin);
  html::Table table("The last changes of the MRIB, the newest first",
                    {"When", "Prefix", "Before", "After", "Cause"});
  for (auto change = content.changes.elements.rbegin(); change != content.changes.elements.rend(); ++change) {
    table.row({timeOf(change->at("time")), codeOf(change->at("prefix")), wayOf(change->at("before")),
               wayOf(change->at("after")), sentenceOf(change->at("cause"))});
  }
  return paragraph("All changes that are known are " + begin) + table.html();
}

// ---- Where it comes from ----

std::string input(const ReportContent& content) {
  std::string text = "<h3>Configuration</h3>\n";
  text += content.configuration.empty() ? paragraph("Nothing is configured.")
                                        : html::listing("Configuration", content.configuration);
  html::Table interfaces("Interfaces", {"Interface", "State", "Addresses"});
  for (const Json& link : content.interfaces.elements) {
    const bool isUp = link.at("up") == true;
    const bool works = isUp && link.at("carrier") == true;
    std::string addresses;
    for (const Json& address : link.at("addresses"))
      addresses += (addresses.empty() ? "" : "<br/>") + codeOf(address);
    interfaces.row({codeOf(link.at("name")),
                    html::badge(works ? "good" : "bad", works  ? "up"
                                                        : isUp ? "no carrier"
                                                               : "down"),
                    addresses});
  }
  interfaces.countIs(content.interfaces.count);
  html::Table unicast("Unicast routes", {"Prefix", "Goes out by", "Type", "Protocol", "Metric"});
  for (const Json& route : content.unicast.elements) {
    unicast.row({codeOf(route.at("prefix")), waysOf(route), nameOf(route.at("type")),
                 nameOf(route.at("protocol")), nameOf(route.at("metric"))});
  }
  unicast.countIs(content.unicast.count);
  return text + "<h3>Interfaces</h3>\n" + interfaces.html() + "<h3>Unicast table</h3>\n" + unicast.html();
}

std::string versions(const ReportContent& content) {
  std::string text = "<dl class=\"facts\">\n";
  for (const auto& [what, value] : content.versions) {
    text += fmt::format("<dt>{}</dt><dd>{}</dd>\n", html::text(what), html::text(value));
  }
  return text + "</dl>\n";
}

}  // namespace host::output::sections
