#pragma once

#include <string_view>

#include "Zan/Export.h"

namespace Zan {

/// Describes a class of objects at run time: its full name and its base type (null for a root).
/// Objects answer `fwkType()` with the one description of their class.
class ZAN_EXPORT ZanType {
 public:
  constexpr ZanType(std::string_view name, const ZanType* base) : name_(name), base_(base) {}
  ZanType(const ZanType&) = delete;
  ZanType& operator=(const ZanType&) = delete;

  constexpr std::string_view name() const { return name_; }
  constexpr const ZanType* base() const { return base_; }
  /// Whether this type is `other` or derives from it.
  constexpr bool isA(const ZanType& other) const {
    for (const ZanType* t = this; t; t = t->base_) {
      if (t == &other) return true;
    }
    return false;
  }

 private:
  std::string_view name_;
  const ZanType* base_;
};

}  // namespace Zan
