#pragma once

#include <nlohmann/json.hpp>
#include <string>

/// The documents of the control protocol as text for people. Everything is escaped.
namespace host::text {

using Json = nlohmann::ordered_json;

/// A table of routes, with a column for protocols when there are any.
std::string ofRoutes(const Json& routes);
/// An answer as routers print it.
std::string ofAnswer(const Json& answer);
/// One line for each that is not in force.
std::string ofUnresolved(const Json& unresolved);
std::string ofStatus(const Json& status);
/// A line of `mrib monitor`.
std::string ofChange(const Json& change, bool settled);
/// A line of `mrib watch`.
std::string ofWatched(const Json& answer);
std::string ofDifference(const Json& difference);
/// What does not resolve by it, and its warnings.
std::string ofConsequences(const Json& difference);

}  // namespace host::text
