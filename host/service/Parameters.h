#pragma once

#include <nlohmann/json.hpp>
#include <set>

#include "Call.h"
#include "Lumo/IpGenAddr.h"
#include "Lumo/IpGenPrefix.h"

namespace host {

/// An answer that is an error.
control::Reply errorReply(std::string name, const nlohmann::ordered_json& parameters);

/// An address that packets can come from, of either family. Throws the reply that says why it is none.
Lumo::IpGenAddr sourceOf(const std::string& text);
/// A prefix of either family; of IPv4. Throw likewise.
Lumo::IpGenPrefix prefixOf(const std::string& text);
Lumo::Prefix v4PrefixOf(const std::string& text);

Lumo::IpGenPrefix prefixOf(const std::string& text);

/// The parameters of a call. What has a wrong type, or what the method does not know, is refused by throwing
/// the reply that says so.
class Parameters {
 public:
  explicit Parameters(const nlohmann::json& json);

  /// Null counts as absent.
  std::optional<std::string> text(const char* name);
  std::vector<std::string> texts(const char* name);
  bool flag(const char* name);
  std::optional<U32> number(const char* name);
  std::optional<U64> largeNumber(const char* name);
  /// To be called when all that the method knows has been asked for.
  void done() const;

 private:
  const nlohmann::json* find(const char* name);
  [[noreturn]] static void refuse(const std::string& name);

  const nlohmann::json& json_;
  std::set<std::string> asked_;
};

}  // namespace host
