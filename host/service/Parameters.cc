#include "Parameters.h"

#include "Documents.h"
#include "Escape.h"
#include "StandardErrors.h"

namespace host {

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
  const nlohmann::json* value = find(name);
  if (!value) return std::nullopt;
  if (!value->is_number_unsigned() || value->get<U64>() > ~U32{0}) refuse(name);
  return value->get<U32>();
}

void Parameters::done() const {
  if (!json_.is_object()) return;
  for (const auto& item : json_.items()) {
    if (!asked_.contains(item.key())) refuse(jsonText(item.key()));
  }
}

}  // namespace host
