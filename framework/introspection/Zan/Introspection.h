#pragma once

#include <string>
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
  const TypeTable* table;
  const TypeEntry* base;  ///< null for a root
  std::vector<Ptr<ZanAttr>> attributes;

  const AttributeRow* row(AttributeId id) const;
  const AttributeRow* row(std::string_view name) const;
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
  /// The table must outlive the program. Its base type must be registered already, and be inside its
  /// namespace.
  void registerType(const TypeTable& table);
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

  std::vector<std::string_view> namespaces_;
  std::vector<std::unique_ptr<TypeEntry>> types_;
  std::vector<const FactoryRow*> factories_;
  std::vector<std::string> names_;
};

/// Registers the types of one source when the program is loaded: opens the namespaces, registers, closes
/// them.
class ZAN_EXPORT TypeRegistration {
 public:
  TypeRegistration(std::initializer_list<std::string_view> namespaces,
                   std::initializer_list<const TypeTable*> tables);
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
