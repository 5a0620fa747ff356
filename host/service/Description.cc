#include "Description.h"

#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "Escape.h"

namespace host::description {

using Zan::AttributeOp;
using Zan::AttributeRow;
using Zan::GenericIf;
using Zan::TypeEntry;
using Zan::Value;

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

namespace {

Json plain(const Value& v) {
  if (v.typeName() == "bool") return v.as<bool>();
  if (v.typeName() == "U8" || v.typeName() == "U32" || v.typeName() == "S32") return std::stoll(v.text());
  if (v.typeName() == "U64") return v.as<U64>();
  return jsonText(v.text());
}

/// Each way to call each operation.
Json operationsOf(const GenericIf& object) {
  Json operations = Json::array();
  for (const AttributeRow* row : rowsOf(object)) {
    for (const Zan::Form& form : row->forms) {
      Json arguments = Json::array();
      for (const Zan::ArgumentRow& a : form.arguments)
        arguments.push_back({{"name", a.name}, {"type", a.type}});
      operations.push_back({{"name", row->name}, {"type", row->type}, {"arguments", std::move(arguments)}});
    }
  }
  return operations;
}

/// Describes objects, each once: what was shown already, or lies deeper than asked for, is only named. Of
/// collections the first members, so that nobody waits for the description of a whole MRIB.
class Describer {
 public:
  explicit Describer(unsigned depth) : depth_(depth) {}

  Json object(const GenericIf& object, unsigned level) {
    Json json;
    json["type"] = object.type() ? object.type()->table->name : object.object().get()->fwkType()->name();
    if (object.object().isConst()) json["const"] = true;
    if (level > depth_ || !shown_.insert(object.object().get()).second) {
      json["name"] = jsonText(Value(object.object()).text());
      return json;
    }
    Json attributes = Json::object();
    for (const AttributeRow* row : rowsOf(object)) {
      if (row->get || row->iterate) attributes[std::string(row->name)] = attribute(object, *row, level);
    }
    json["attributes"] = std::move(attributes);
    return json;
  }

  Json attribute(const GenericIf& object, const AttributeRow& row, unsigned level) {
    Json json;
    json["type"] = row.type;
    if (!row.iterate) {
      json["value"] = valueOf(object.attributeOp({row.id, AttributeOp::read}), level);
      return json;
    }
    json["members"] = Json::array();
    const U32 count = object.attributeOp({row.id, AttributeOp::count}).as<U32>();
    for (auto i = object.iterator(row.id); i->nonNull() && members_ < mostMembers; i->advance()) {
      ++members_;
      Json member;
      member["key"] = jsonText(i->key().text());
      const Value v = i->member();
      if (v.isObject()) member["value"] = valueOf(v, level);
      json["members"].push_back(std::move(member));
    }
    if (count > json["members"].size()) json["left"] = count - json["members"].size();
    return json;
  }

 private:
  Json valueOf(const Value& v, unsigned level) {
    if (!v.isObject()) return plain(v);
    return v.object() ? object(GenericIf(v.object()), level + 1) : Json();
  }

  static constexpr std::size_t mostMembers = 2000;  // of all collections

  unsigned depth_;
  std::size_t members_ = 0;
  std::set<const Zan::PtrInterface*> shown_;
};

/// The same description for people: an attribute a line, what is inside indented.
void print(std::string& text, const Json& json, std::size_t indent);

void printValue(std::string& text, const Json& value, std::size_t indent) {
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

void printAttribute(std::string& text, const Json& attribute, std::size_t indent) {
  if (!attribute.contains("members")) {
    const Json& value = attribute["value"];
    if (!value.is_object()) text += fmt::format(" {} =", attribute["type"].get<std::string>());
    printValue(text, value, indent);
    return;
  }
  const std::size_t left = attribute.value("left", std::size_t{0});
  text += fmt::format(" {}, {} members{}\n", attribute["type"].get<std::string>(),
                      attribute["members"].size() + left, left > 0 ? ", of which the first:" : "");
  for (const Json& member : attribute["members"]) {
    text += fmt::format("{:{}}[{}]", "", indent, escaped(member["key"].get<std::string>()));
    if (member.contains("value")) {
      printValue(text, member["value"], indent + 2);
    } else {
      text += '\n';
    }
  }
}

void print(std::string& text, const Json& attributes, std::size_t indent) {
  for (const auto& [name, attribute] : attributes.items()) {
    text += fmt::format("{:{}}{}:", "", indent, name);
    printAttribute(text, attribute, indent + 2);
  }
}

void printOperations(std::string& text, const Json& operations) {
  if (operations.empty()) return;
  text += "  operations\n";
  for (const Json& operation : operations) {
    std::string arguments;
    for (const Json& a : operation["arguments"])
      arguments += fmt::format(" {}={}", a["name"].get<std::string>(), a["type"].get<std::string>());
    text += fmt::format("    {}{} -> {}\n", operation["name"].get<std::string>(), arguments,
                        operation["type"].get<std::string>());
  }
}

}  // namespace

Json ofObject(const GenericIf& object, unsigned depth) {
  Json json = Describer(depth).object(object, 1);
  json["operations"] = operationsOf(object);
  return json;
}

Json ofCollection(const GenericIf& object, const AttributeRow& row, unsigned depth) {
  return Describer(depth).attribute(object, row, 0);
}

Json ofValue(const Value& value) {
  return {{"type", value.typeName()}, {"value", plain(value)}};
}

std::string textOf(const Json& description) {
  std::string text;
  if (!description.contains("operations")) {
    printAttribute(text, description, 2);
  } else {
    printValue(text, description, 2);
    printOperations(text, description["operations"]);
  }
  return text;
}

}  // namespace host::description
