#pragma once

#include "Zan/Exception.h"
#include "Zan/Export.h"

namespace Quarn {

/// A slot of a shared-memory table does not hold what its writer would have left there, or could not be
/// copied because its writer changed it each of thousands of times. The text names the table, the slot and
/// the reason.
class ZAN_EXPORT CorruptionException : public Zan::Exception {
 public:
  explicit CorruptionException(std::string text) : Exception(std::move(text), Zan::ExceptionId::corruption) {}
  ~CorruptionException() override;
};

}  // namespace Quarn
