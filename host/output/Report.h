#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace host::output {

using Json = nlohmann::ordered_json;

/// What a page about a router is made of: replies of org.mrib, and what is known beside them. What is not
/// known is null, or says in `error` why not.
struct ReportContent {
  /// A long list, of which a part is here.
  struct List {
    Json elements = Json::array();
    std::size_t count = 0;
  };
  /// As many elements of a list as the page has room for.
  static constexpr std::size_t mostElements = 2000;

  std::string machine;  ///< its name; empty: not known
  std::string time;     ///< for people
  std::string answeredBy;
  Json status;
  List routes;
  List unresolved;
  List notExported;  ///< in force, but not, or not wholly, in the exported table
  List waiting;      ///< behind a better preference
  List warnings;
  Json check = Json::object();  ///< its summary, or the error
  List flows;
  Json history = Json::object();  ///< where it begins, or the error
  List changes;                   ///< the last ones, the oldest first
  Json graph;
  std::string picture;    ///< SVG; empty: `tree` has to do
  std::string noPicture;  ///< why, if so
  std::string tree;
  List interfaces;
  List unicast;
  std::string configuration;
  std::vector<std::pair<std::string, std::string>> versions;
};

/// One page in HTML (and well-formed XML) that needs nothing else: no network, no script.
std::string reportOf(const ReportContent& content);

}  // namespace host::output
