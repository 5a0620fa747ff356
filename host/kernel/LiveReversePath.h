#pragma once

#include <memory>
#include <span>

#include "Attributes.h"
#include "Mirror.h"
#include "ReversePath.h"

struct mnl_socket;

namespace host::kernel {

/// Of the kernel that this process runs on. Asks it anew each time, some microseconds long, without
/// privilege.
class LiveReversePath : public ReversePath {
 public:
  /// The mirror knows the links. Throws Error.
  explicit LiveReversePath(const Mirror& mirror);

  std::optional<PacketSettings> settings(const Link& link) const override;
  std::optional<SourceRoute> routeTo(Lumo::IpAddr source, const Link& link) const override;

 private:
  struct Close {
    void operator()(mnl_socket* socket) const;
  };
  std::optional<PacketSettings::One> settingsOf(S32 index, const std::string& name) const;
  /// The messages that answer a request; empty when they got lost.
  Bytes ask(std::span<U8> request) const;

  const Mirror& mirror_;
  std::unique_ptr<mnl_socket, Close> socket_;
  mutable std::vector<U8> answer_;
  mutable U32 sequence_ = 0;
};

}  // namespace host::kernel
