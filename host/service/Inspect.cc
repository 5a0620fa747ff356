#include "Inspect.h"

#include <fmt/format.h>

#include <algorithm>
#include <nlohmann/json.hpp>
#include <numeric>
#include <set>

#include "Error.h"
#include "Escape.h"

namespace host {

namespace {

using nlohmann::ordered_json;
using Zan::AttributeOp;
using Zan::AttributeRow;
using Zan::GenericIf;
using Zan::TypeEntry;
using Zan::Value;

constexpr int schemaVersion = 1;

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

std::vector<const AttributeRow*> rowsOf(const GenericIf& object) {
  std::vector<const AttributeRow*> rows;
  for (const TypeEntry* type = object.type(); type; type = type->base) {
    for (const AttributeRow& row : type->table->rows) {
      const bool known = std::any_of(rows.begin(), rows.end(), [&](auto* r) { return r->name == row.name; });
      if (!known) rows.push_back(&row);
    }
  }
  return rows;
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
    for (const AttributeRow* row : rowsOf(object)) names.push_back(row->name);
    throw fail(e, e.subject(), names);
  } catch (const Zan::UnknownArgumentException& e) {
    std::vector<std::string_view> names;
    for (const AttributeRow* row : rowsOf(object)) {
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

/// What a path leads to: an object, or a collection of one.
struct Place {
  GenericIf object;
  const AttributeRow* collection = nullptr;
  std::string path;
};

const AttributeRow& rowOf(const GenericIf& object, std::string_view name) {
  const Zan::AttributeId id = object.attributeId(name);
  for (const AttributeRow* row : rowsOf(object)) {
    if (row->id == id) return *row;
  }
  throw Zan::UnknownAttributeException(object.type()->table->name, name);
}

void step(Place& place, const std::string& part) {
  if (place.collection)
    throw Error(place.path + " is a collection: name a member as " + place.path + "[KEY]");
  const std::size_t bracket = part.find('[');
  const std::string name = part.substr(0, bracket);
  const std::string path = place.path + '/' + part;
  const GenericIf object = place.object;
  place.path = path;
  if (bracket == part.npos && rowOf(object, name).iterate) {
    place.collection = &rowOf(object, name);
    return;
  }
  Value value;
  if (bracket == part.npos) {
    value = object.read(name);
  } else {
    if (part.back() != ']') throw Error(path + ": a key ends with ]");
    value = object.read(name, Value::of(part.substr(bracket + 1, part.size() - bracket - 2)));
  }
  if (!value.isObject()) throw Error(path + " is a value, not an object: " + escaped(value.text()));
  if (!value.object()) throw Error(path + ": there is none");
  place.object = GenericIf(value.object());
}

Place follow(const GenericIf& root, const std::string& rootName, const std::string& path) {
  Place place{root, nullptr, rootName};
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
  if (place.collection && !(request.sets.empty() && request.calls.empty())) {
    throw Error(place.path + " is a collection: only an object has attributes to set and operations to call");
  }
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

// ---- Output ----

/// Describes objects, each once: what was shown already, or lies deeper than asked for, is only named.
class Describer {
 public:
  explicit Describer(unsigned depth) : depth_(depth) {}

  ordered_json object(const GenericIf& object, unsigned level) {
    ordered_json json;
    json["type"] = object.type() ? object.type()->table->name : object.object().get()->fwkType()->name();
    if (object.object().isConst()) json["const"] = true;
    if (level > depth_ || !shown_.insert(object.object().get()).second) {
      json["name"] = jsonText(Value(object.object()).text());
      return json;
    }
    ordered_json attributes = ordered_json::object();
    for (const AttributeRow* row : rowsOf(object)) {
      if (row->get || row->iterate) attributes[std::string(row->name)] = attribute(object, *row, level);
    }
    json["attributes"] = std::move(attributes);
    return json;
  }

  ordered_json attribute(const GenericIf& object, const AttributeRow& row, unsigned level) {
    ordered_json json;
    json["type"] = row.type;
    if (!row.iterate) {
      json["value"] = value(object.attributeOp({row.id, AttributeOp::read}), level);
      return json;
    }
    json["members"] = ordered_json::array();
    for (auto i = object.iterator(row.id); i->nonNull(); i->advance()) {
      ordered_json member;
      member["key"] = jsonText(i->key().text());
      const Value v = i->member();
      if (v.isObject()) member["value"] = value(v, level);
      json["members"].push_back(std::move(member));
    }
    return json;
  }

 private:
  ordered_json value(const Value& v, unsigned level) {
    if (v.isObject()) return v.object() ? object(GenericIf(v.object()), level + 1) : ordered_json();
    if (v.typeName() == "bool") return v.as<bool>();
    if (v.typeName() == "U8" || v.typeName() == "U32" || v.typeName() == "S32") return std::stoll(v.text());
    if (v.typeName() == "U64") return v.as<U64>();
    return jsonText(v.text());
  }

  unsigned depth_;
  std::set<const Zan::PtrInterface*> shown_;
};

/// The same description for people: an attribute a line, what is inside indented.
void print(std::string& text, const ordered_json& json, std::size_t indent);

void printValue(std::string& text, const ordered_json& value, std::size_t indent) {
  if (value.is_object()) {
    text +=
        fmt::format(" {}{}", value.value("const", false) ? "const " : "", value["type"].get<std::string>());
    if (value.contains("name")) text += fmt::format(" {}", escaped(value["name"].get<std::string>()));
    text += '\n';
    if (value.contains("attributes")) print(text, value["attributes"], indent);
  } else {
    text += fmt::format(" {}\n", value.is_string() ? escaped(value.get<std::string>()) : value.dump());
  }
}

void printAttribute(std::string& text, const ordered_json& attribute, std::size_t indent) {
  if (!attribute.contains("members")) {
    const ordered_json& value = attribute["value"];
    if (!value.is_object()) text += fmt::format(" {} =", attribute["type"].get<std::string>());
    printValue(text, value, indent);
    return;
  }
  text += fmt::format(" {}, {} members\n", attribute["type"].get<std::string>(), attribute["members"].size());
  for (const ordered_json& member : attribute["members"]) {
    text += fmt::format("{:{}}[{}]", "", indent, escaped(member["key"].get<std::string>()));
    if (member.contains("value")) {
      printValue(text, member["value"], indent + 2);
    } else {
      text += '\n';
    }
  }
}

void print(std::string& text, const ordered_json& attributes, std::size_t indent) {
  for (const auto& [name, attribute] : attributes.items()) {
    text += fmt::format("{:{}}{}:", "", indent, name);
    printAttribute(text, attribute, indent + 2);
  }
}

}  // namespace

std::string inspect(const GenericIf& root, const std::string& rootName, const InspectRequest& request) {
  const Place place = follow(root, rootName, request.path);
  std::string text;
  apply(place, request, text);
  Describer describer(request.depth);
  const ordered_json description = place.collection ? describer.attribute(place.object, *place.collection, 0)
                                                    : describer.object(place.object, 1);
  if (request.json) {
    ordered_json document;
    document["schemaVersion"] = schemaVersion;
    document["path"] = jsonText(place.path);
    document.update(description);
    if (!text.empty()) document["results"] = jsonText(text);
    return document.dump(2, ' ', false, ordered_json::error_handler_t::replace) + '\n';
  }
  text += escaped(place.path) + ':';
  if (place.collection) {
    printAttribute(text, description, 2);
  } else {
    printValue(text, description, 2);
  }
  return text;
}

}  // namespace host
