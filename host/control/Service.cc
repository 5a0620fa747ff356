#include "Service.h"

namespace host::control {

using nlohmann::json;

namespace {

constexpr const char* ownDescription = R"(# What every Varlink service tells of itself.
interface org.varlink.service

# Who made the service, and the interfaces that it has.
method GetInfo() -> (
  vendor: string,
  product: string,
  version: string,
  url: string,
  interfaces: []string
)

# The text that describes an interface.
method GetInterfaceDescription(interface: string) -> (description: string)

# There is no such interface.
error InterfaceNotFound (interface: string)

# The interface has no such method.
error MethodNotFound (method: string)

# The interface has the method, the service does not.
error MethodNotImplemented (method: string)

# A parameter is missing or wrong.
error InvalidParameter (parameter: string)

# The client may not do this.
error PermissionDenied ()

# The method has to be called with "more".
error ExpectedMore ()
)";

/// Whether an interface promises a method.
bool describes(const Interface& interface, std::string_view method) {
  const std::string name = "method " + std::string(method);
  const std::size_t at = interface.description.find(name);
  if (at == std::string::npos) return false;
  const std::size_t next = interface.description.find_first_not_of(" \t", at + name.size());
  return next != std::string::npos && interface.description[next] == '(';
}

}  // namespace

Service::Service(Handler& handler, Info info)
    : handler_(handler), info_(std::move(info)), own_{"org.varlink.service", ownDescription} {}

Answer Service::call(const Request& request, const Peer& peer) {
  const std::string_view method = request.method;
  const std::size_t dot = method.rfind('.');
  if (dot == std::string_view::npos) return invalidParameter("method");
  const Interface* interface = find(method.substr(0, dot));
  if (!interface) return interfaceNotFound(method.substr(0, dot));
  if (interface == &own_) return ownCall(method.substr(dot + 1), request.parameters);
  const bool more = request.more && !request.oneway;
  auto answer = handler_.call(method, request.parameters, more, peer);
  if (answer) return std::move(*answer);
  return describes(*interface, method.substr(dot + 1)) ? methodNotImplemented(method)
                                                       : methodNotFound(method);
}

const Interface* Service::find(std::string_view name) const {
  if (name == own_.name) return &own_;
  for (const Interface& interface : handler_.interfaces()) {
    if (interface.name == name) return &interface;
  }
  return nullptr;
}

Reply Service::ownCall(std::string_view method, const json& parameters) const {
  if (method == "GetInfo") return getInfo();
  if (method == "GetInterfaceDescription") return getInterfaceDescription(parameters);
  return methodNotFound(own_.name + '.' + std::string(method));
}

Reply Service::getInfo() const {
  json names = json::array({own_.name});
  for (const Interface& interface : handler_.interfaces()) names.push_back(interface.name);
  const json info{{"vendor", info_.vendor},
                  {"product", info_.product},
                  {"version", info_.version},
                  {"url", info_.url},
                  {"interfaces", names}};
  return {info.dump(), {}, false};
}

Reply Service::getInterfaceDescription(const json& parameters) const {
  const auto name = parameters.find("interface");
  if (name == parameters.end() || !name->is_string()) return invalidParameter("interface");
  const auto& text = name->get_ref<const std::string&>();
  const Interface* interface = find(text);
  if (!interface) return interfaceNotFound(text);
  return {json{{"description", interface->description}}.dump(), {}, false};
}

}  // namespace host::control
