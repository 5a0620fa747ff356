#pragma once

#include "Zan/Introspection.h"

// Rows that many types have alike.

namespace glue {

/// The one form of an operation without arguments.
template <auto Function>
inline constexpr Zan::Form formWithoutArguments[] = {{{}, Zan::call<Function>}};

/// An operation without arguments and result.
template <auto Function>
constexpr Zan::AttributeRow handlerRow(Zan::AttributeId id, std::string_view name) {
  return {.id = id,
          .name = name,
          .type = "void",
          .flags = Zan::ZanAttrIntrospectionFlags::handler,
          .forms = formWithoutArguments<Function>};
}

inline constexpr Zan::ArgumentRow zombieArguments[] = {{"zombie", "bool"}};
template <class T>
inline constexpr Zan::Form zombieForms[] = {{zombieArguments, Zan::call<&T::zanDoZombieReactors>}};
template <class T>
constexpr Zan::AttributeRow zombieRow(Zan::AttributeId id) {
  return {.id = id,
          .name = "zanDoZombieReactors",
          .type = "void",
          .flags = Zan::ZanAttrIntrospectionFlags::handler,
          .forms = zombieForms<T>};
}

/// A row of every object, which the framework gives a type among its own.
constexpr Zan::AttributeRow frameworkRow(Zan::AttributeRow row) {
  row.flags = row.flags.value() | Zan::ZanAttrIntrospectionFlags::framework;
  return row;
}
inline constexpr Zan::AttributeRow activityRow = frameworkRow(Zan::zanFwkActivityRow);
inline constexpr Zan::AttributeRow activeRow = frameworkRow(Zan::hasNotificationActiveIsRow);

}  // namespace glue
