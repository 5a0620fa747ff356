#pragma once

#include <nlohmann/json.hpp>
#include <string>

#include "Zan/GenericIf.h"

/// What there is to see of objects that tell of themselves, as JSON documents and as text.
namespace host::description {

using Json = nlohmann::ordered_json;

/// All attributes of an object, its own and those of its base types.
std::vector<const Zan::AttributeRow*> rowsOf(const Zan::GenericIf& object);

/// The attributes and operations of an object. Each object is described once, and those within objects to
/// `depth`; the others are only named.
Json ofObject(const Zan::GenericIf& object, unsigned depth);
/// The members of a collection of an object.
Json ofCollection(const Zan::GenericIf& object, const Zan::AttributeRow& row, unsigned depth);
/// A value that is no object.
Json ofValue(const Zan::Value& value);

/// A description for people, to follow a name and a colon: an attribute a line, what is inside indented.
/// Everything is escaped.
std::string textOf(const Json& description);

}  // namespace host::description
