#include "Inspect.h"

#include <fmt/format.h>

#include <algorithm>
#include <numeric>

#include "Description.h"
#include "Error.h"
#include "Escape.h"

namespace host {

namespace {

using nlohmann::ordered_json;
using Zan::AttributeRow;
using Zan::GenericIf;
using Zan::Value;

constexpr int schemaVersion = 2;

/// Escaped, but for the quotes that our own texts put around names.
std::string shown(std::string_view text) {
  std::string result = escaped(text);
  for (std::size_t at = 0; (at = result.find("\\\"", at)) != result.npos; ++at) result.erase(at, 1);
  return result;
}

// ---- Names ----

std::size_t distance(std::string_view a, std::string_view b) {
  std::vector<std::size_t> row(b.size() + 1);
  std::iota(row.begin(), row.end(), std::size_t{0});
  for (std::size_t i = 0; i < a.size(); ++i) {
    std::size_t corner = std::exchange(row[0], i + 1);
    for (std::size_t j = 0; j < b.size(); ++j) {
      const std::size_t replaced = corner + (std::tolower(a[i]) != std::tolower(b[j]));
      corner = row[j + 1];
      row[j + 1] = std::min({replaced, row[j] + 1, corner + 1});
    }
  }
  return row.back();
}

std::string didYouMean(std::string_view wrong, const std::vector<std::string_view>& right) {
  if (right.empty()) return "";
  const auto nearest = *std::min_element(
      right.begin(), right.end(), [&](auto a, auto b) { return distance(wrong, a) < distance(wrong, b); });
  return distance(wrong, nearest) <= 1 + wrong.size() / 2 ? fmt::format("; did you mean \"{}\"?", nearest)
                                                          : "";
}

/// Runs `action` and turns what reflection throws into an error with the nearest right name.
template <class Action>
auto orError(const GenericIf& object, const std::string& what, Action action) {
  const auto fail = [&](const std::exception& e, std::string_view wrong,
                        const std::vector<std::string_view>& right) {
    return Error(shown(what) + ": " + shown(e.what()) + didYouMean(wrong, right));
  };
  const Zan::Expect expected(Zan::ExceptionId::introspection);
  try {
    return action();
  } catch (const Zan::UnknownAttributeException& e) {
    std::vector<std::string_view> names;
    for (const AttributeRow* row : description::rowsOf(object)) names.push_back(row->name);
    throw fail(e, e.subject(), names);
  } catch (const Zan::UnknownArgumentException& e) {
    std::vector<std::string_view> names;
    for (const AttributeRow* row : description::rowsOf(object)) {
      if (!what.starts_with(row->name)) continue;
      for (const Zan::Form& form : row->forms) {
        for (const Zan::ArgumentRow& argument : form.arguments) names.push_back(argument.name);
      }
    }
    throw fail(e, e.subject(), names);
  } catch (const Zan::Exception& e) {
    throw fail(e, "", {});
  }
}

// ---- The path ----

/// "a/b[key]/c" as a, b[key], c: a key may hold slashes.
std::vector<std::string> partsOf(const std::string& path) {
  std::vector<std::string> parts(1);
  bool inKey = false;
  for (const char c : path) {
    inKey = c == '[' ? true : c == ']' ? false : inKey;
    if (c == '/' && !inKey) {
      parts.emplace_back();
    } else {
      parts.back() += c;
    }
  }
  std::erase(parts, "");
  return parts;
}

/// What a path leads to: an object, or a collection or a plain value of one.
struct Place {
  GenericIf object;
  const AttributeRow* collection = nullptr;
  std::optional<Value> value{};
  std::string path;
};

const AttributeRow& rowOf(const GenericIf& object, std::string_view name) {
  const Zan::AttributeId id = object.attributeId(name);
  for (const AttributeRow* row : description::rowsOf(object)) {
    if (row->id == id) return *row;
  }
  throw Zan::UnknownAttributeException(object.type()->table->name, name);
}

/// What an attribute is, or its member with the key in brackets.
Value read(const GenericIf& object, const std::string& part, const std::string& path) {
  const std::size_t bracket = part.find('[');
  if (bracket == part.npos) return object.read(part);
  if (part.back() != ']') throw Error(path + ": a key ends with ]");
  return object.read(part.substr(0, bracket), Value::of(part.substr(bracket + 1, part.size() - bracket - 2)));
}

void checkObject(const Place& place) {
  if (place.collection)
    throw Error(place.path + " is a collection: name a member as " + place.path + "[KEY]");
  if (place.value) throw Error(place.path + " is a value, not an object: " + escaped(place.value->text()));
}

void step(Place& place, const std::string& part) {
  checkObject(place);
  const GenericIf object = place.object;
  place.path += '/' + part;
  if (part.find('[') == part.npos && rowOf(object, part).iterate) {
    place.collection = &rowOf(object, part);
    return;
  }
  Value value = read(object, part, place.path);
  if (!value.isObject()) {
    place.value = std::move(value);
  } else if (value.object()) {
    place.object = GenericIf(value.object());
  } else {
    throw Error(place.path + ": there is none");
  }
}

Place follow(const GenericIf& root, const std::string& rootName, const std::string& path) {
  Place place{root, nullptr, std::nullopt, rootName};
  const std::vector<std::string> parts = partsOf(path.empty() ? rootName : path);
  if (parts.empty() || parts[0] != rootName) {
    throw Error(fmt::format("{}: a path begins with \"{}\"", escaped(path), rootName));
  }
  for (std::size_t i = 1; i < parts.size(); ++i) {
    const GenericIf before = place.object;
    orError(before, place.path + '/' + parts[i], [&] { step(place, parts[i]); });
  }
  return place;
}

// ---- Operations ----

/// "add=true rpf=addr 1.2.3.4": a word without = belongs to the value before it.
std::vector<Zan::NamedArgument> argumentsOf(std::string_view text) {
  std::vector<std::pair<std::string, std::string>> found;
  while (!text.empty()) {
    const std::size_t end = text.find(' ');
    const std::string_view word = text.substr(0, end);
    text.remove_prefix(end == text.npos ? text.size() : end + 1);
    if (word.empty()) continue;
    const std::size_t equals = word.find('=');
    if (equals != word.npos) {
      found.emplace_back(word.substr(0, equals), word.substr(equals + 1));
    } else if (!found.empty()) {
      found.back().second.append(" ").append(word);
    } else {
      throw Error(fmt::format("expected ARGUMENT=VALUE, found \"{}\"", escaped(word)));
    }
  }
  std::vector<Zan::NamedArgument> arguments;
  arguments.reserve(found.size());
  for (auto& [name, value] : found) arguments.push_back({name, Value::of(value)});
  return arguments;
}

void apply(const Place& place, const InspectRequest& request, std::string& results) {
  if (!(request.sets.empty() && request.calls.empty())) checkObject(place);
  for (const std::string& text : request.sets) {
    const std::size_t equals = text.find('=');
    if (equals == text.npos) throw Error(fmt::format("expected NAME=VALUE, found \"{}\"", escaped(text)));
    orError(place.object, text,
            [&] { place.object.set(text.substr(0, equals), Value::of(text.substr(equals + 1))); });
  }
  for (const std::string& text : request.calls) {
    const std::size_t blank = text.find(' ');
    const Value result = orError(place.object, text, [&] {
      return place.object.call(
          text.substr(0, blank),
          argumentsOf(blank == text.npos ? "" : std::string_view(text).substr(blank + 1)));
    });
    if (!result.isNothing()) results += fmt::format("{} = {}\n", escaped(text), escaped(result.text()));
  }
}

ordered_json describe(const Place& place, unsigned depth) {
  if (place.value) return description::ofValue(*place.value);
  if (place.collection) return description::ofCollection(place.object, *place.collection, depth);
  return description::ofObject(place.object, depth);
}

}  // namespace

std::string inspect(const GenericIf& root, const std::string& rootName, const InspectRequest& request) {
  const Place place = follow(root, rootName, request.path);
  std::string results;
  apply(place, request, results);
  const ordered_json described = describe(place, request.depth);
  if (!request.json) return results + escaped(place.path) + ':' + description::textOf(described);
  ordered_json document;
  document["schemaVersion"] = schemaVersion;
  document["path"] = jsonText(place.path);
  document.update(described);
  if (!results.empty()) document["results"] = jsonText(results);
  return document.dump(2, ' ', true, ordered_json::error_handler_t::replace) + '\n';
}

}  // namespace host
