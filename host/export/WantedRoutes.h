#pragma once

#include "Exporter.h"
#include "Router.h"

namespace host {

/// What an exported table says of a prefix, by the MRIB and by who reads it.
///
/// Who looks for a neighbour behind each route gets no connected ones, and of a route by an interface needs
/// the neighbour's address: what the configuration names, or else the other end of a point-to-point link.
class WantedRoutes {
 public:
  WantedRoutes(const Router& router, ExportFor user) : router_(router), user_(user) {}

  Wanted of(const Lumo::Prefix& prefix) const;
  /// To be called when the router's configuration is another one.
  void configurationChanged();

 private:
  using Line = const MrouteLine*;

  void addWay(const Lumo::Prefix& prefix, const mrib::NextHop& hop, Wanted& wanted) const;
  bool addNeighbor(const Lumo::Prefix& prefix, U32 link, Wanted& wanted) const;
  void addHop(const Lumo::IpGenAddr& gateway, U32 link, Wanted& wanted) const;
  bool isOnLink(const Lumo::IpGenAddr& gateway, U32 link) const;
  Lumo::IpAddr namedNeighbor(const Lumo::Prefix& prefix, U32 link, int deep = 0) const;
  std::set<Lumo::IpAddr> peersOf(U32 link) const;
  std::span<const Line> linesOf(const Lumo::Prefix& prefix) const;

  const Router& router_;
  ExportFor user_;
  std::vector<Line> lines_;  // by prefix; none when no neighbour is named
};

}  // namespace host
