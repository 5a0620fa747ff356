#pragma once

#include <string>
#include <unordered_map>
#include <vector>

#include "Zan/ZanAttr.h"

namespace Zan {

// Attributes of every object, served by the last base type's table.
inline constexpr AttributeId hasNotificationActiveIsId = 1;
inline constexpr AttributeId hasNotificationActiveId = 2;
inline constexpr AttributeId isZombieId = 3;
inline constexpr AttributeId zanFwkActivityId = 4;

/// The activity of a reactor; null for one without, and for an object that is none.
ZAN_EXPORT Value activityOf(const PtrInterface& object);

// Two of them are listed by state machines among their own as well.
inline constexpr ArgumentRow activeArguments[] = {{"active", "bool"}};
inline constexpr Form activeForms[] = {{activeArguments, call<&PtrInterface::hasNotificationActiveIs>}};
inline constexpr AttributeRow hasNotificationActiveIsRow = {.id = hasNotificationActiveIsId,
                                                            .name = "hasNotificationActiveIs",
                                                            .type = "void",
                                                            .flags = ZanAttrIntrospectionFlags::handler,
                                                            .forms = activeForms};
inline constexpr AttributeRow zanFwkActivityRow = {.id = zanFwkActivityId,
                                                   .name = "zanFwkActivity",
                                                   .type = "Zan::ActivityConfig",
                                                   .flags = ZanAttrIntrospectionFlags::readOnly,
                                                   .get = activityOf};

/// A type as it was registered: its table, its attributes, and its base type.
struct ZAN_EXPORT TypeEntry {
  TypeEntry(const TypeTable& table, const TypeEntry* base);

  const TypeTable* table;
  const TypeEntry* base;                 ///< null for a root
  std::vector<Ptr<ZanAttr>> attributes;  ///< in the order of the table's rows
  /// The handles of all attributes by name, those of the base types included.
  std::unordered_map<std::string_view, Ptr<ZanAttr>> handles;

  /// The type's own rows, by identifier minus that of the first; null for an identifier of a base type.
  const AttributeRow* row(AttributeId id) const {
    const AttributeId place = id - first_;
    return place < rows_.size() ? rows_[place] : nullptr;
  }
  /// Null for a name that neither the type nor its base types have.
  const ZanAttr* attribute(std::string_view name) const;

 private:
  AttributeId first_ = 0;
  std::vector<const AttributeRow*> rows_;
};

/// Attributes of one type that are registered together: those named, in this order, or else all that are not
/// registered yet but for the excepted.
struct AttributeGroup {
  const TypeTable* type;
  std::vector<std::string_view> names = {};
  std::vector<std::string_view> except = {};
};

/// Every type that tells of itself, in the order of registration. Filled while the program is loaded, then
/// only read.
class ZAN_EXPORT Introspection {
 public:
  static Introspection& instance();

  /// Namespaces are opened from the outside in and closed from the inside out.
  void openNamespace(std::string_view name);
  void closeNamespace();
  /// Notes a name in the order of its first use.
  void useName(std::string_view name);
  /// Registers a type with its base type, which must be registered already; its attributes follow. The table
  /// must outlive the program, and the type be inside the open namespace.
  void registerType(const TypeTable& table);
  void registerAttributes(const AttributeGroup& group);
  /// Looks up the handles of the type's attributes, and those of its base types, by name. To be called when
  /// they are all registered.
  void keepHandles(const TypeTable& table);
  /// The row must outlive the program.
  void registerFactory(const FactoryRow& row);

  const std::vector<std::unique_ptr<TypeEntry>>& types() const { return types_; }
  const std::vector<std::string>& names() const { return names_; }
  /// Null for a type that is not registered.
  const TypeEntry* type(std::string_view name) const;
  /// The entry of the nearest registered type that an object is of, or null.
  const TypeEntry* typeOf(const PtrInterface& object) const;
  /// Null for a factory that is not registered.
  const FactoryRow* factory(std::string_view name) const;
  const std::vector<const FactoryRow*>& factories() const { return factories_; }
  /// The handle of an attribute of a type, or null.
  Ptr<ZanAttr> attribute(std::string_view type, std::string_view name) const;

 private:
  Introspection();
  void registerAttribute(TypeEntry& entry, const AttributeRow& row);
  TypeEntry& entryOf(const TypeTable& table) const;

  std::vector<std::string_view> namespaces_;
  std::vector<std::unique_ptr<TypeEntry>> types_;
  std::unordered_map<std::string_view, TypeEntry*> typesByName_;
  std::vector<const FactoryRow*> factories_;
  std::vector<std::string> names_;
};

/// Registers the types of one source when the program is loaded: opens the namespaces, registers the types,
/// then their attributes, and closes the namespaces. The groups of attributes come first, in their order,
/// then all that are left, table by table and row by row. Last it looks up the handles by which they are
/// found by name, which live as long as the process.
class ZAN_EXPORT TypeRegistration {
 public:
  TypeRegistration(std::initializer_list<std::string_view> namespaces,
                   std::initializer_list<const TypeTable*> tables,
                   std::initializer_list<AttributeGroup> groups = {});
};

/// A process-wide handle of an attribute, found by name when the program is loaded and released when it ends.
class ZAN_EXPORT AttributeHandle {
 public:
  AttributeHandle(std::string_view type, std::string_view name);
  const ZanAttr& operator*() const { return *attribute_; }
  const ZanAttr* operator->() const { return attribute_.get(); }

 private:
  Ptr<ZanAttr> attribute_;
};

}  // namespace Zan
