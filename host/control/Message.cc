#include "Message.h"

#include <fmt/format.h>

namespace host::control {

using nlohmann::json;

namespace {

Reply standardError(const char* name, const json& parameters = json::object()) {
  return {parameters.dump(), std::string("org.varlink.service.") + name, false};
}

Refusal confused(const std::string& why) {
  return {invalidParameter("the request: " + why), false, why};
}

/// An object for certain; throws nothing.
std::variant<json, Refusal> parseObject(std::string_view message, U32 nesting) {
  if (nestsDeeper(message, nesting)) return confused(fmt::format("it nests deeper than {}", nesting));
  try {
    json object = json::parse(message);
    if (!object.is_object()) return confused("it is no JSON object");
    return object;
  } catch (const json::parse_error& e) {
    return confused(fmt::format("bad JSON at byte {}", e.byte));
  } catch (const json::exception&) {  // a number beyond all bounds
    return confused("bad JSON");
  }
}

/// False when the member is there and is no boolean.
bool readFlag(const json& object, const char* name, bool& flag) {
  const auto it = object.find(name);
  if (it == object.end()) return true;
  if (!it->is_boolean()) return false;
  flag = it->get<bool>();
  return true;
}

/// The name of the member that is wrong, empty when none is.
std::string_view readMembers(json& object, Request& request) {
  bool upgrade = false;
  if (!readFlag(object, "oneway", request.oneway)) return "oneway";
  if (!readFlag(object, "more", request.more)) return "more";
  if (!readFlag(object, "upgrade", upgrade) || upgrade) return "upgrade";
  const auto method = object.find("method");
  if (method == object.end() || !method->is_string()) return "method";
  request.method = std::move(method->get_ref<std::string&>());
  const auto parameters = object.find("parameters");
  if (parameters == object.end() || parameters->is_null()) return {};  // Go's clients say null for none
  if (!parameters->is_object()) return "parameters";
  request.parameters = std::move(*parameters);
  return {};
}

}  // namespace

bool nestsDeeper(std::string_view text, U32 limit) {
  U32 depth = 0;
  bool quoted = false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const char c = text[i];
    if (c == '"') quoted = !quoted;
    if (quoted) {
      i += c == '\\';
    } else if (c == '{' || c == '[') {
      if (++depth > limit) return true;
    } else if ((c == '}' || c == ']') && depth > 0) {
      --depth;
    }
  }
  return false;
}

std::variant<Request, Refusal> parseRequest(std::string_view message, U32 nesting) {
  auto parsed = parseObject(message, nesting);
  if (auto* refusal = std::get_if<Refusal>(&parsed)) return std::move(*refusal);
  Request request;
  const std::string_view wrong = readMembers(std::get<json>(parsed), request);
  if (!wrong.empty()) return Refusal{invalidParameter(wrong), request.oneway, {}};
  return request;
}

void append(std::string& out, const Reply& reply) {
  out += '{';
  if (!reply.error.empty()) out.append("\"error\":\"").append(reply.error).append("\",");
  out.append("\"parameters\":").append(reply.parameters);
  if (reply.continues && reply.error.empty()) out += ",\"continues\":true";
  out += '}';
  out += '\0';
}

Reply interfaceNotFound(std::string_view interface) {
  return standardError("InterfaceNotFound", {{"interface", interface}});
}
Reply methodNotFound(std::string_view method) {
  return standardError("MethodNotFound", {{"method", method}});
}
Reply methodNotImplemented(std::string_view method) {
  return standardError("MethodNotImplemented", {{"method", method}});
}
Reply invalidParameter(std::string_view parameter) {
  return standardError("InvalidParameter", {{"parameter", parameter}});
}
Reply permissionDenied() {
  return standardError("PermissionDenied");
}
Reply expectedMore() {
  return standardError("ExpectedMore");
}

}  // namespace host::control
