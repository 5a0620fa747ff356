#pragma once

#include <string>
#include <vector>

#include "Configuration.h"
#include "mrib/Agent.h"

namespace host {

/// The MRIB and what there is to say about it.
struct MribView {
  const mrib::Agent& agent;
  const std::vector<MrouteLine>& lines;
  std::string source;  ///< where the routes come from
  std::vector<std::string> warnings;
};

/// The MRIB as a table for people, and as a JSON document (schemaVersion 1) for programs.
std::string mribText(const MribView& view);
std::string mribJson(const MribView& view);

/// The answer to "which way must packets from `source` come in?".
std::string rpfText(const mrib::Agent& agent, Lumo::IpAddr source);
std::string rpfJson(const mrib::Agent& agent, Lumo::IpAddr source);

}  // namespace host
