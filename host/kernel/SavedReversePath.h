#pragma once

#include <map>
#include <string>

#include "Mirror.h"
#include "ReversePath.h"

namespace host::kernel {

/// Of a machine whose tables were saved: settings from netconf.json (`ip -4 -j netconf`) where that is there,
/// and the route from the mirror's one table.
class SavedReversePath : public ReversePath {
 public:
  SavedReversePath(const std::string& folder, const Mirror& mirror);

  std::optional<PacketSettings> settings(const Link& link) const override;
  std::optional<SourceRoute> routeTo(Lumo::IpAddr source, const Link& link) const override;

 private:
  bool isBroadcast(Lumo::IpAddr address) const;

  const Mirror& mirror_;
  std::map<std::string, PacketSettings::One> settings_;
};

}  // namespace host::kernel
