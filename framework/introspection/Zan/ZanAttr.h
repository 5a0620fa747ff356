#pragma once

#include <vector>

#include "Zan/TypeTable.h"

namespace Zan {

/// A registered attribute, handler or operation of a type: a counted handle to its description. What has
/// arguments or an index has them as attributes of its own, in order.
class ZAN_EXPORT ZanAttr : public VFPtrInterface {
 public:
  ZanAttr(const AttributeRow& row, std::string_view containingType);
  ZanAttr(const ArgumentRow& argument, std::string_view containingType, AttributeId position);
  ~ZanAttr() override;

  std::string_view name() const { return name_; }
  std::string_view valueType() const { return valueType_; }
  std::string_view containingType() const { return containingType_; }
  ZanAttrIntrospectionFlags flags() const { return flags_; }
  AttributeId id() const { return id_; }
  /// What a collection is indexed by; null for anything else.
  const Ptr<ZanAttr>& index() const { return index_; }
  /// For each form in which it can be called, its arguments.
  const std::vector<std::vector<Ptr<ZanAttr>>>& forms() const { return forms_; }

  /// From the system: it lives as long as the process, and would keep the pool from having all back.
  static void* operator new(std::size_t size) { return ::operator new(size); }
  static void operator delete(void* attribute) noexcept { ::operator delete(attribute); }

 private:
  std::string_view name_;
  std::string_view valueType_;
  std::string_view containingType_;
  ZanAttrIntrospectionFlags flags_;
  AttributeId id_;
  Ptr<ZanAttr> index_;
  std::vector<std::vector<Ptr<ZanAttr>>> forms_;
};

}  // namespace Zan
