#pragma once

#include <nlohmann/json.hpp>
#include <string>
#include <utility>

#include "Columns.h"

/// The documents of the control protocol as text for people. Everything is escaped.
namespace host::text {

using Json = nlohmann::ordered_json;

/// A table of routes, made while they come.
class RouteTable {
 public:
  /// The lines of some routes, after those of the columns' names when they are the first.
  std::string part(const Json& routes);

 private:
  using Row = Columns<7>::Row;
  static std::vector<Row> rowsOf(const Json& route);

  bool begun_ = false;
  Columns<7> columns_;
};
/// "static [1] via 10.0.1.7 on eth0", without its prefix.
std::string ofRoute(const Json& route);

/// A table of what is in the kernel's multicast forwarding cache; likewise.
class FlowTable {
 public:
  std::string part(const Json& flows);

 private:
  bool begun_ = false;
  Columns<7> columns_;
};
/// How many flows a summary is about.
std::size_t flowsIn(const Json& summary);
/// "8 flows: 1 wrong, 7 right", of all or of a selection.
std::string ofSummary(const Json& summary, const std::string& selection);

/// An answer as routers print it.
std::string ofAnswer(const Json& answer);
/// A list of configured routes, made while they come: those that are not in force under a title, then those
/// that are but are not exported, under their own.
class UnresolvedList {
 public:
  explicit UnresolvedList(std::string title) : title_(std::move(title)) {}
  std::string part(const Json& unresolved);

 private:
  std::string title_;
  bool isTitled_ = false;
  bool isExportTitled_ = false;
};
/// Whether it is in force, and not, or not wholly, in the exported table.
bool isNotExported(const Json& unresolved);
/// One line for each.
std::string ofUnresolved(const Json& unresolved);
/// The steps, numbered and indented, and in the last line what they come to.
std::string ofExplanation(const Json& explanation);
std::string ofStatus(const Json& status);
/// A line of `mrib monitor`.
std::string ofChange(const Json& change, bool settled);
/// A line of `mrib watch`.
std::string ofWatched(const Json& answer);
std::string ofWatchedPrefix(const Json& watched);
/// A line of `mrib what-if` about a flow.
std::string ofFlow(const Json& change);
std::string ofDifference(const Json& difference);
/// What does not resolve by it, and its warnings.
std::string ofConsequences(const Json& difference);

}  // namespace host::text
