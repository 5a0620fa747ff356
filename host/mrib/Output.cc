#include "Output.h"

#include <fmt/format.h>

#include <cstdio>
#include <cstring>
#include <iostream>

#include "ConfigSave.h"
#include "Error.h"
#include "Escape.h"

namespace host {

namespace {

bool write(const std::string& text) {
  return std::fwrite(text.data(), 1, text.size(), stdout) == text.size() && std::fflush(stdout) == 0;
}

std::string line(const Json& value) {
  std::string text = dump(value, -1);
  text.pop_back();
  return text;
}

}  // namespace

void print(const std::string& text) {
  if (!write(text)) throw Error(std::string("standard output: ") + std::strerror(errno));
}

void put(const std::string& file, const std::string& text) {
  if (file.empty() || file == "-") {
    print(text);
  } else {
    save(file, text);
  }
}

std::string dump(const Json& document, int indent) {
  return document.dump(indent, ' ', true, Json::error_handler_t::replace) + '\n';
}

std::string configurationText(const std::string& argument) {
  if (jsonText(argument) == argument) return argument;
  throw UsageError('"' + escaped(argument) +
                   "\": it is no UTF-8; write the name in double quotes, and such bytes as \\xHH");
}

Json documentOf(const Backend& backend, const Json& answer) {
  Json document;
  document["schemaVersion"] = schemaVersion;
  document["answeredBy"] = jsonText(backend.name());
  document.update(answer);
  return document;
}

int codeOf(const Request& request, bool isStale, int code) {
  return request.fresh && isStale ? stale : code;
}

std::size_t Listing::list(const std::string& method, const Json& parameters, const char* name,
                          const PartText& text) {
  std::size_t count = 0;
  backend_.stream(method, parameters, [&](const Json& part) {
    if (count == 0) begin(part, name);
    const Json& elements = part.at(name);
    std::string out = request_.json ? "" : text(elements);
    for (std::size_t i = 0; request_.json && i < elements.size(); ++i) {
      out += (count + i == 0 ? "\n    " : ",\n    ") + line(elements[i]);
    }
    count += elements.size();
    print(out);
    return true;
  });
  if (request_.json) print(count == 0 ? "]" : "\n  ]");
  return count;
}

void Listing::end() const {
  if (request_.json) print("\n}\n");
}

/// What stands before a list.
void Listing::begin(const Json& part, const char* name) {
  const bool isFirst = !std::exchange(begun_, true);
  std::string out;
  for (const auto& [key, value] : part.items()) {
    if (isFirst && key != name) head_[key] = value;
  }
  if (isFirst && request_.json) {
    out = fmt::format("{{\n  \"schemaVersion\": {},\n  \"answeredBy\": {}", schemaVersion,
                      line(jsonText(backend_.name())));
    for (const auto& [key, value] : head_.items()) out += fmt::format(",\n  \"{}\": {}", key, line(value));
  }
  if (request_.json) out += fmt::format(",\n  \"{}\": [", name);
  print(out);
}

int report(const Request& request, int code, const std::string& text) {
  const Json error{{"schemaVersion", schemaVersion}, {"error", jsonText(text)}, {"exitCode", code}};
  if (!request.json || !write(dump(error, 2))) std::cerr << "mrib: " << text << '\n';
  return code;
}

}  // namespace host
