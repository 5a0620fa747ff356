#pragma once

#include <functional>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "Zan/Types.h"

namespace host::kernel {

/// An object in a JSON file, which knows where it stands: what is wrong with it is said with file, place and
/// what was expected. All throw Error.
class JsonObject {
 public:
  JsonObject(const nlohmann::json& value, std::string where);

  bool has(const char* key) const { return value_.contains(key); }
  bool empty() const { return value_.empty(); }
  U32 number(const char* key, U32 least, U32 most) const;
  U32 numberOr(const char* key, U32 absent, U32 least, U32 most) const;
  U64 count(const char* key) const;  ///< 0 when absent
  std::string text(const char* key) const;
  std::string textOr(const char* key, const char* absent) const;
  bool flag(const char* key) const;  ///< false when absent, here and below: none
  std::vector<std::string> texts(const char* key) const;
  std::vector<JsonObject> objects(const char* key) const;
  std::optional<JsonObject> object(const char* key) const;

  /// FILE: element 3: "key": expected WHAT, found VALUE
  [[noreturn]] void refuse(const char* key, const std::string& expected) const;
  [[noreturn]] void refuse(const std::string& why) const;

 private:
  const nlohmann::json& value_;
  std::string where_;
};

/// Calls `each` for every element of a file, which must be an array of objects. One element at a time is held
/// in memory: a million routes must not become a document.
void forElements(const std::string& path, const std::function<void(const JsonObject&)>& each);

}  // namespace host::kernel
