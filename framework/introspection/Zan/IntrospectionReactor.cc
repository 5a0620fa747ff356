#include "Zan/IntrospectionReactor.h"

namespace Zan {

Ptr<PtrInterface::NotifieeConst> IntrospectionReactor::on(const GenericIf& object, Listener listener) {
  const TypeEntry* type = object.type();
  if (!type || !type->table->reactor) return nullptr;
  auto reactor = type->table->reactor(std::move(listener));
  reactor->notifierIs(Ptr<PtrInterface const>(object.object().get()));
  reactor->isRegisteredNotifieeIs(true);
  return reactor;
}

}  // namespace Zan
