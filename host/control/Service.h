#pragma once

#include "Message.h"

namespace host::control {

/// What `org.varlink.service.GetInfo` says.
struct Info {
  std::string vendor;
  std::string product;
  std::string version;
  std::string url;
};

/// Leads calls to the interfaces of a handler, and is the interface that every service has.
class Service {
 public:
  /// `handler` outlives this.
  Service(Handler& handler, Info info);

  Answer call(const Request& request, const Peer& peer);

 private:
  const Interface* find(std::string_view name) const;
  Reply ownCall(std::string_view method, const nlohmann::json& parameters) const;
  Reply getInfo() const;
  Reply getInterfaceDescription(const nlohmann::json& parameters) const;

  Handler& handler_;
  Info info_;
  Interface own_;
};

}  // namespace host::control
