#include "Parameters.h"

#include "Documents.h"
#include "Escape.h"
#include "Groups.h"
#include "Lumo/Prefix.h"
#include "StandardErrors.h"
#include "Zan/Exception.h"

namespace host {

using Lumo::IpGenAddr;
using Lumo::IpGenPrefix;

namespace {

std::optional<std::string> faultOfSource(const IpGenAddr& address) {
  if (address.af() == Lumo::ipv4()) {
    const Lumo::IpAddr a = address.v4Addr();
    if (groups.contains(a)) return "it is a group address; RPF is a question about a source";
    if (a.host() >> 24 == 0 || a.host() == ~U32{0}) return "no host has it";
  } else if (address.stringValue().starts_with("ff")) {
    return "it is a group address; RPF is a question about a source";
  }
  return std::nullopt;
}

}  // namespace

control::Reply errorReply(std::string name, const nlohmann::ordered_json& parameters) {
  return {documents::textOf(parameters), std::move(name), false};
}

Parameters::Parameters(const nlohmann::json& json) : json_(json) {}

const nlohmann::json* Parameters::find(const char* name) {
  asked_.insert(name);
  if (!json_.is_object()) return nullptr;
  const auto at = json_.find(name);
  return at == json_.end() || at->is_null() ? nullptr : &*at;
}

void Parameters::refuse(const std::string& name) {
  throw control::invalidParameter(name);
}

std::optional<std::string> Parameters::text(const char* name) {
  const nlohmann::json* value = find(name);
  if (!value) return std::nullopt;
  if (!value->is_string()) refuse(name);
  return value->get<std::string>();
}

std::vector<std::string> Parameters::texts(const char* name) {
  const nlohmann::json* value = find(name);
  if (!value) return {};
  if (!value->is_array()) refuse(name);
  std::vector<std::string> texts;
  texts.reserve(value->size());
  for (const nlohmann::json& element : *value) {
    if (!element.is_string()) refuse(name);
    texts.push_back(element.get_ref<const std::string&>());
  }
  return texts;
}

bool Parameters::flag(const char* name) {
  const nlohmann::json* value = find(name);
  if (value && !value->is_boolean()) refuse(name);
  return value && value->get<bool>();
}

std::optional<U32> Parameters::number(const char* name) {
  const auto value = largeNumber(name);
  if (value && *value > ~U32{0}) refuse(name);
  return value;
}

std::optional<U64> Parameters::largeNumber(const char* name) {
  const nlohmann::json* value = find(name);
  if (!value) return std::nullopt;
  if (!value->is_number_unsigned()) refuse(name);
  return value->get<U64>();
}

void Parameters::done() const {
  if (!json_.is_object()) return;
  for (const auto& item : json_.items()) {
    if (!asked_.contains(item.key())) refuse(jsonText(item.key()));
  }
}

IpGenAddr sourceOf(const std::string& text) {
  const auto refuse = [&](std::string_view why) {
    throw errorReply("org.mrib.InvalidAddress", {{"address", jsonText(text)}, {"why", why}});
  };
  IpGenAddr address;
  try {
    address = IpGenAddr(std::string_view(text));
  } catch (const Zan::RangeException&) {
    refuse("it is not an address");
  }
  if (address == IpGenAddr()) refuse("it is not an address");
  if (const auto fault = faultOfSource(address)) refuse(*fault);
  return address;
}

IpGenPrefix prefixOf(const std::string& text) {
  IpGenPrefix prefix;
  std::string why = "it is not a prefix";
  try {
    prefix = IpGenPrefix(std::string_view(text));
  } catch (const Zan::RangeException& e) {
    why = e.what();
    const std::string name = '"' + text + "\" ";
    if (why.starts_with(name)) why.replace(0, name.size(), "it ");
  }
  if (prefix.empty())
    throw errorReply("org.mrib.InvalidPrefix", {{"prefix", jsonText(text)}, {"why", jsonText(why)}});
  return prefix;
}

Lumo::Prefix v4PrefixOf(const std::string& text) {
  const Lumo::IpGenPrefix prefix = prefixOf(text);
  if (prefix.af() == Lumo::ipv4()) return prefix.v4Prefix();
  throw errorReply("org.mrib.InvalidPrefix", {{"prefix", jsonText(text)}, {"why", "the MRIB is of IPv4"}});
}

}  // namespace host
