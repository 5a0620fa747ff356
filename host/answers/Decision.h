#pragma once

#include <string>

#include "Router.h"

namespace host {

/// A way by which packets may come, of either table.
struct Way {
  Lumo::IpGenAddr neighbor;  ///< empty: the source is on the link itself
  U32 link = 0;              ///< 0: there is no such link
  std::string interface;     ///< as it is, not escaped; empty without link
};

/// Which way packets from a source must come in, and what decides that: a value of its own.
struct Decision {
  Lumo::IpGenAddr source;
  RpfAnswer::Status status = RpfAnswer::Status::noRoute;
  RpfAnswer::Table table = RpfAnswer::Table::none;
  Lumo::IpGenPrefix prefix;               ///< of the route that answers; empty without one
  std::optional<mrib::Route> route;       ///< it, of the MRIB
  std::optional<kernel::Answer> unicast;  ///< it, of the unicast table
  std::vector<Way> ways;
  std::vector<mrib::Mroute> lines;  ///< configured ones that are in force for the route

  bool allows(U32 link) const;
};

Decision decisionFor(const Router& router, const Lumo::IpGenAddr& source);

/// The configured line or the route that decides, as a clause: "mrib.conf:4 (ip mroute ...) decides".
std::string decidingText(const Router& router, const Decision& decision);

/// The same as a noun: "mrib.conf:4 (ip mroute ...)".
std::string decidingName(const Router& router, const Decision& decision);

/// A configured line as texts name it: "mrib.conf:4 (ip mroute 203.0.113.0/24 10.0.1.7)"; escaped.
std::string lineName(const Configuration& configuration, const mrib::Mroute& line);

/// Some of them, with "and" between; of many the first, and how many more there are.
std::string lineNames(const Configuration& configuration, std::span<const mrib::Mroute> lines);

/// The interfaces of ways, each once: "eth1 or eth2"; escaped.
std::string interfacesText(const std::vector<Way>& ways);
/// The ways: "by 10.0.1.7 on eth1 or on eth2"; escaped.
std::string waysText(const std::vector<Way>& ways);

/// The ways of a route of either table.
std::vector<Way> waysOf(const Router& router, const mrib::Route& route);
std::vector<Way> waysOf(const Router& router, const kernel::Answer& answer);

}  // namespace host
