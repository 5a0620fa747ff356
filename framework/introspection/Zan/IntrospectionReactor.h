#pragma once

#include <functional>

#include "Zan/Entity.h"
#include "Zan/GenericIf.h"

namespace Zan {

/// Hears every change of an object whose class it does not know, by the name of the attribute: of a scalar,
/// of a member of a collection, of a whole collection.
class ZAN_EXPORT IntrospectionReactor {
 public:
  using Listener = std::function<void(std::string_view attribute)>;

  /// Begins to listen. Null for a type without notifiees of its own. The reactor listens as long as the
  /// result lives.
  static Ptr<PtrInterface::NotifieeConst> on(const GenericIf& object, Listener listener);
};

/// What a type's table names as its reactor: a notifiee of the right class, all of whose handlers are the
/// default ones, which pass on what they hear without a type.
template <class NotifieeBase>
class IntrospectionReactorOf : public NotifieeBase {
 public:
  explicit IntrospectionReactorOf(IntrospectionReactor::Listener listener) : listener_(std::move(listener)) {}

  void onAttribute(AttributeId attribute) override {
    listener_(static_cast<const Entity*>(this->rawNotifier())->attributeName(attribute));
  }
  void onCollectionNotification(const String8& attribute) override { listener_(attribute.view()); }

  static Ptr<PtrInterface::NotifieeConst> make(IntrospectionReactor::Listener listener) {
    return create<IntrospectionReactorOf>(std::move(listener));
  }

 private:
  IntrospectionReactor::Listener listener_;
};

}  // namespace Zan
