#pragma once

#include <nlohmann/json.hpp>
#include <string>

namespace host {

/// What status, the check of multicast forwarding and its interfaces count, in Prometheus' text format.
std::string metricsOf(const nlohmann::ordered_json& status, const nlohmann::ordered_json& check,
                      const nlohmann::ordered_json& interfaces);

}  // namespace host
