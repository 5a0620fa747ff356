#pragma once

#include <nlohmann/json.hpp>

#include "StandardErrors.h"

/// Varlink's messages: JSON objects, each ended by a NUL byte.
namespace host::control {

/// What a client wants.
struct Request {
  std::string method;
  nlohmann::json parameters = nlohmann::json::object();
  bool more = false;    ///< several replies are welcome
  bool oneway = false;  ///< no reply is
};

/// A message that is no request.
struct Refusal {
  Reply reply;
  bool oneway = false;
  std::string confused;  ///< why it is not even a JSON object: what follows can hardly be better
};

/// Reads a message, without its NUL. Never throws; what nests deeper than `nesting` is refused before
/// anything is built of it. Cost: linear.
std::variant<Request, Refusal> parseRequest(std::string_view message, U32 nesting);

/// Whether brackets and braces of a JSON text nest deeper than `limit`.
bool nestsDeeper(std::string_view json, U32 limit);

/// Adds the message of a reply, with its NUL.
void append(std::string& out, const Reply& reply);

}  // namespace host::control
