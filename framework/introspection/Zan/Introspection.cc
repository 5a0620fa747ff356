#include "Zan/Introspection.h"

#include <algorithm>

#include "Zan/Activity.h"
#include "Zan/Assert.h"
#include "Zan/Entity.h"

namespace Zan {

namespace {

// What every object answers, and every entity.

constexpr auto readOnly = ZanAttrIntrospectionFlags::readOnly;
constexpr AttributeRow objectRows[] = {
    hasNotificationActiveIsRow,
    {.id = hasNotificationActiveId,
     .name = "hasNotificationActive",
     .type = "bool",
     .flags = readOnly,
     .get = get<&PtrInterface::hasNotificationActive>},
    {.id = isZombieId,
     .name = "isZombie",
     .type = "bool",
     .flags = readOnly,
     .get = get<&PtrInterface::isZombie>},
    zanFwkActivityRow,
};
static_assert(covers(objectRows, 1, 4));
constexpr TypeTable objectTable{"Zan::PtrInterface", "", objectRows};

template <auto Path>
Value text(const PtrInterface& object) {
  return Value::of(Name((static_cast<const Entity&>(object).*Path)()));
}
constexpr AttributeRow entityRows[] = {
    {.id = Entity::nameId, .name = "name", .type = "Zan::Name", .flags = readOnly, .get = get<&Entity::name>},
    {.id = Entity::parentId,
     .name = "parent",
     .type = "Zan::Entity",
     .flags = readOnly,
     .get = get<&Entity::parent>},
    {.id = Entity::parentId + 3,
     .name = "fullName",
     .type = "Zan::Name",
     .flags = readOnly,
     .get = text<&Entity::fullName>},
    {.id = Entity::parentId + 4,
     .name = "uriPath",
     .type = "Zan::Name",
     .flags = readOnly,
     .get = text<&Entity::uriPath>},
};
constexpr TypeTable entityTable{"Zan::Entity", "Zan::PtrInterface", entityRows};

}  // namespace

Value activityOf(const PtrInterface& object) {
  const auto* notifiee = dynamic_cast<const PtrInterface::NotifieeConst*>(&object);
  return ObjectRef(Ptr<ActivityConfig const>(notifiee ? notifiee->zanFwkActivity() : nullptr));
}

void ZanAttrIntrospectionFlags::refuse() {
  throwRangeException("ZanAttrIntrospectionFlags::value > 0x3f not allowed");
}

AttributeIterator::~AttributeIterator() = default;

ZanAttr::ZanAttr(const AttributeRow& row, std::string_view containingType)
    : name_(row.name), valueType_(row.type), containingType_(containingType), flags_(row.flags), id_(row.id) {
  for (const Form& form : row.forms) {
    auto& arguments = forms_.emplace_back();
    for (const ArgumentRow& argument : form.arguments) {
      arguments.push_back(create<ZanAttr>(argument, row.name, static_cast<AttributeId>(arguments.size())));
    }
  }
}

ZanAttr::ZanAttr(const ArgumentRow& argument, std::string_view containingType, AttributeId position)
    : name_(argument.name),
      valueType_(argument.type),
      containingType_(containingType),
      flags_(0),
      id_(position) {}

ZanAttr::~ZanAttr() = default;

const AttributeRow* TypeEntry::row(AttributeId id) const {
  const auto found = std::find_if(table->rows.begin(), table->rows.end(),
                                  [id](const AttributeRow& row) { return row.id == id; });
  return found == table->rows.end() ? nullptr : &*found;
}

const AttributeRow* TypeEntry::row(std::string_view name) const {
  const auto found = std::find_if(table->rows.begin(), table->rows.end(),
                                  [name](const AttributeRow& row) { return row.name == name; });
  return found == table->rows.end() ? nullptr : &*found;
}

Introspection::Introspection() {
  openNamespace("Zan");
  registerType(objectTable);
  registerType(entityTable);
  names_.clear();  // those of the sources count from here
  closeNamespace();
}

Introspection& Introspection::instance() {
  static Introspection registry;
  return registry;
}

void Introspection::openNamespace(std::string_view name) {
  namespaces_.push_back(name);
}

void Introspection::closeNamespace() {
  ZAN_ASSERT(!namespaces_.empty());
  namespaces_.pop_back();
}

void Introspection::useName(std::string_view name) {
  if (std::find(names_.begin(), names_.end(), name) == names_.end()) names_.emplace_back(name);
}

void Introspection::registerType(const TypeTable& table) {
  std::string inside;
  for (const std::string_view name : namespaces_) (inside += name) += "::";
  ZAN_ASSERT(table.name.starts_with(inside));
  ZAN_ASSERT(!type(table.name));
  const TypeEntry* base = table.baseName.empty() ? nullptr : type(table.baseName);
  ZAN_ASSERT(base || table.baseName.empty());
  auto entry = std::make_unique<TypeEntry>(TypeEntry{&table, base, {}});
  for (const AttributeRow& row : table.rows) {
    useName(row.name);
    entry->attributes.push_back(create<ZanAttr>(row, table.name));
    for (const Form& form : row.forms) {
      for (const ArgumentRow& argument : form.arguments) useName(argument.name);
    }
  }
  types_.push_back(std::move(entry));
}

void Introspection::registerFactory(const FactoryRow& row) {
  ZAN_ASSERT(!factory(row.name));
  factories_.push_back(&row);
}

const FactoryRow* Introspection::factory(std::string_view name) const {
  const auto found = std::find_if(factories_.begin(), factories_.end(),
                                  [name](const FactoryRow* row) { return row->name == name; });
  return found == factories_.end() ? nullptr : *found;
}

const TypeEntry* Introspection::type(std::string_view name) const {
  const auto found = std::find_if(types_.begin(), types_.end(),
                                  [name](const auto& entry) { return entry->table->name == name; });
  return found == types_.end() ? nullptr : found->get();
}

const TypeEntry* Introspection::typeOf(const PtrInterface& object) const {
  for (const ZanType* t = object.fwkType(); t; t = t->base()) {
    if (const TypeEntry* entry = type(t->name())) return entry;
  }
  return nullptr;
}

Ptr<ZanAttr> Introspection::attribute(std::string_view typeName, std::string_view name) const {
  for (const TypeEntry* entry = type(typeName); entry; entry = entry->base) {
    for (const auto& attribute : entry->attributes) {
      if (attribute->name() == name) return attribute;
    }
  }
  return nullptr;
}

TypeRegistration::TypeRegistration(std::initializer_list<std::string_view> namespaces,
                                   std::initializer_list<const TypeTable*> tables) {
  Introspection& registry = Introspection::instance();
  for (const std::string_view name : namespaces) registry.openNamespace(name);
  for (const TypeTable* table : tables) registry.registerType(*table);
  for (std::size_t i = 0; i < namespaces.size(); ++i) registry.closeNamespace();
}

AttributeHandle::AttributeHandle(std::string_view type, std::string_view name)
    : attribute_(Introspection::instance().attribute(type, name)) {
  ZAN_ASSERT(attribute_);
}

}  // namespace Zan
