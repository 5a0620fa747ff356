#include "JsonElements.h"

#include <fmt/format.h>

#include <fstream>

#include "Error.h"
#include "Escape.h"

namespace host::kernel {

using nlohmann::json;

JsonObject::JsonObject(const json& value, std::string where) : value_(value), where_(std::move(where)) {
  if (!value_.is_object()) refuse("expected an object");
}

void JsonObject::refuse(const std::string& why) const {
  throw Error(where_ + ": " + why);
}

void JsonObject::refuse(const char* key, const std::string& expected) const {
  constexpr std::size_t longest = 64;
  const auto it = value_.find(key);
  const bool isText = it != value_.end() && it->is_string();
  std::string found = it == value_.end() ? "nothing" : isText ? it->get<std::string>() : it->dump();
  if (found.size() > longest) found = found.substr(0, longest) + "...";
  const char* quote = isText ? "\"" : "";
  refuse(fmt::format("\"{}\": expected {}, found {}{}{}", key, expected, quote, escaped(found), quote));
}

U32 JsonObject::number(const char* key, U32 least, U32 most) const {
  const auto it = value_.find(key);
  if (it != value_.end() && it->is_number_unsigned()) {
    const auto value = it->get<U64>();
    if (value >= least && value <= most) return static_cast<U32>(value);
  }
  refuse(key, fmt::format("a number from {} to {}", least, most));
}

U32 JsonObject::numberOr(const char* key, U32 absent, U32 least, U32 most) const {
  return has(key) ? number(key, least, most) : absent;
}

U64 JsonObject::count(const char* key) const {
  const auto it = value_.find(key);
  if (it == value_.end()) return 0;
  if (!it->is_number_unsigned()) refuse(key, "a number that counts");
  return it->get<U64>();
}

std::string JsonObject::text(const char* key) const {
  const auto it = value_.find(key);
  if (it == value_.end() || !it->is_string()) refuse(key, "a text");
  return it->get<std::string>();
}

std::string JsonObject::textOr(const char* key, const char* absent) const {
  return has(key) ? text(key) : absent;
}

bool JsonObject::flag(const char* key) const {
  const auto it = value_.find(key);
  if (it == value_.end()) return false;
  if (!it->is_boolean()) refuse(key, "true or false");
  return it->get<bool>();
}

std::vector<std::string> JsonObject::texts(const char* key) const {
  std::vector<std::string> result;
  const auto it = value_.find(key);
  if (it == value_.end()) return result;
  if (!it->is_array()) refuse(key, "a list of texts");
  for (const json& entry : *it) {
    if (!entry.is_string()) refuse(key, "a list of texts");
    result.push_back(entry.get<std::string>());
  }
  return result;
}

std::vector<JsonObject> JsonObject::objects(const char* key) const {
  std::vector<JsonObject> result;
  const auto it = value_.find(key);
  if (it == value_.end()) return result;
  if (!it->is_array()) refuse(key, "a list of objects");
  for (std::size_t i = 0; i < it->size(); ++i) {
    result.emplace_back((*it)[i], fmt::format("{}: \"{}\" {}", where_, key, i + 1));
  }
  return result;
}

std::optional<JsonObject> JsonObject::object(const char* key) const {
  const auto it = value_.find(key);
  if (it == value_.end()) return std::nullopt;
  return JsonObject(*it, fmt::format("{}: \"{}\"", where_, key));
}

namespace {

/// Builds the elements of the array at the top, one after the other.
class ElementReader : public nlohmann::json_sax<json> {
 public:
  ElementReader(const std::string& path, const std::function<void(const JsonObject&)>& each)
      : path_(escaped(path)), each_(each) {}

  bool null() override { return value(nullptr); }
  bool boolean(bool v) override { return value(v); }
  bool number_integer(number_integer_t v) override { return value(v); }
  bool number_unsigned(number_unsigned_t v) override { return value(v); }
  bool number_float(number_float_t v, const string_t&) override { return value(v); }
  bool string(string_t& v) override { return value(std::move(v)); }
  bool binary(binary_t&) override { return value(nullptr); }
  bool key(string_t& name) override {
    if (open_.back()->contains(name)) fail(fmt::format("\"{}\" is there twice", escaped(name)));
    key_ = std::move(name);
    return true;
  }
  bool start_object(std::size_t) override { return start(json::object()); }
  bool end_object() override { return end(); }
  bool start_array(std::size_t) override { return !std::exchange(inside_, true) || start(json::array()); }
  bool end_array() override { return open_.empty() || end(); }
  bool parse_error(std::size_t position, const std::string&, const nlohmann::detail::exception&) override {
    throw Error(fmt::format("{}: byte {}: expected JSON", path_, position));
  }

 private:
  static constexpr std::size_t deepest = 16;

  [[noreturn]] void fail(const std::string& why) const {
    throw Error(fmt::format("{}: element {}: {}", path_, element_, why));
  }
  json* add(json&& v) {
    if (!inside_) fail("expected an array at the top");
    if (open_.empty()) {
      ++element_;
      if (!v.is_object()) fail("expected an object");
      top_ = std::move(v);
      return &top_;
    }
    json& parent = *open_.back();
    if (parent.is_object()) return &(parent[key_] = std::move(v));
    parent.push_back(std::move(v));
    return &parent.back();
  }
  bool value(json v) {
    add(std::move(v));
    return true;
  }
  bool start(json v) {
    if (open_.size() == deepest) fail("nested too deeply");
    open_.push_back(add(std::move(v)));
    return true;
  }
  bool end() {
    open_.pop_back();
    if (open_.empty()) each_(JsonObject(top_, fmt::format("{}: element {}", path_, element_)));
    return true;
  }

  std::string path_;
  const std::function<void(const JsonObject&)>& each_;
  bool inside_ = false;  // of the array at the top
  std::size_t element_ = 0;
  json top_;
  std::vector<json*> open_;
  std::string key_;
};

}  // namespace

void forElements(const std::string& path, const std::function<void(const JsonObject&)>& each) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw Error(escaped(path) + ": can't open it");
  ElementReader reader(path, each);
  json::sax_parse(in, &reader);
}

}  // namespace host::kernel
