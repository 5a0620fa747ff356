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
  if (!row.index.name.empty()) index_ = create<ZanAttr>(row.index, row.name, AttributeId{0});
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

TypeEntry::TypeEntry(const TypeTable& t, const TypeEntry* b) : table(&t), base(b), attributes(t.rows.size()) {
  AttributeId last = 0;
  first_ = ~AttributeId{0};
  const auto isOwn = [](const AttributeRow& row) {
    return !row.flags.has(ZanAttrIntrospectionFlags::framework);
  };
  for (const AttributeRow& row : t.rows) {
    if (!isOwn(row)) continue;
    first_ = std::min(first_, row.id);
    last = std::max(last, row.id);
  }
  for (const AttributeRow& row : t.rows) {
    if (!isOwn(row)) continue;
    rows_.resize(last - first_ + 1);
    rows_[row.id - first_] = &row;
  }
}

const ZanAttr* TypeEntry::attribute(std::string_view name) const {
  const auto found = handles.find(name);
  return found == handles.end() ? nullptr : found->second.get();
}

Introspection::Introspection() {
  openNamespace("Zan");
  for (const TypeTable* table : {&objectTable, &entityTable}) {
    registerType(*table);
    registerAttributes({table});
    keepHandles(*table);
  }
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
  types_.push_back(std::make_unique<TypeEntry>(table, base));
  typesByName_.emplace(table.name, types_.back().get());
}

void Introspection::registerAttributes(const AttributeGroup& group) {
  TypeEntry& entry = entryOf(*group.type);
  const auto rows = group.type->rows;
  for (const std::string_view name : group.names) {
    const auto row = std::find_if(rows.begin(), rows.end(), [=](const auto& r) { return r.name == name; });
    ZAN_ASSERT(row != rows.end());
    registerAttribute(entry, *row);
  }
  if (!group.names.empty()) return;
  for (const AttributeRow& row : rows) {
    const bool excepted = std::find(group.except.begin(), group.except.end(), row.name) != group.except.end();
    if (!excepted) registerAttribute(entry, row);
  }
}

void Introspection::registerAttribute(TypeEntry& entry, const AttributeRow& row) {
  auto& attribute = entry.attributes[static_cast<std::size_t>(&row - entry.table->rows.data())];
  if (attribute) return;
  attribute = create<ZanAttr>(row, entry.table->name);
  useName(row.name);
  if (!row.index.name.empty()) useName(row.index.name);
  for (const Form& form : row.forms) {
    for (const ArgumentRow& argument : form.arguments) useName(argument.name);
  }
}

void Introspection::keepHandles(const TypeTable& table) {
  TypeEntry& entry = entryOf(table);
  for (const auto& attribute : entry.attributes) entry.handles.emplace(attribute->name(), attribute);
  if (entry.base) entry.handles.insert(entry.base->handles.begin(), entry.base->handles.end());
}

TypeEntry& Introspection::entryOf(const TypeTable& table) const {
  const auto found = typesByName_.find(table.name);
  ZAN_ASSERT(found != typesByName_.end());
  return *found->second;
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
  const auto found = typesByName_.find(name);
  return found == typesByName_.end() ? nullptr : found->second;
}

const TypeEntry* Introspection::typeOf(const PtrInterface& object) const {
  for (const ZanType* t = object.fwkType(); t; t = t->base()) {
    if (const TypeEntry* entry = type(t->name())) return entry;
  }
  return nullptr;
}

Ptr<ZanAttr> Introspection::attribute(std::string_view typeName, std::string_view name) const {
  const TypeEntry* entry = type(typeName);
  if (!entry) return nullptr;
  const auto found = entry->handles.find(name);
  return found == entry->handles.end() ? nullptr : found->second;
}

TypeRegistration::TypeRegistration(std::initializer_list<std::string_view> namespaces,
                                   std::initializer_list<const TypeTable*> tables,
                                   std::initializer_list<AttributeGroup> groups) {
  Introspection& registry = Introspection::instance();
  for (const std::string_view name : namespaces) registry.openNamespace(name);
  for (const TypeTable* table : tables) registry.registerType(*table);
  for (const AttributeGroup& group : groups) registry.registerAttributes(group);
  for (const TypeTable* table : tables) registry.registerAttributes({table});
  for (std::size_t i = 0; i < namespaces.size(); ++i) registry.closeNamespace();
  for (const TypeTable* table : tables) registry.keepHandles(*table);
}

AttributeHandle::AttributeHandle(std::string_view type, std::string_view name)
    : attribute_(Introspection::instance().attribute(type, name)) {
  ZAN_ASSERT(attribute_);
}

}  // namespace Zan
