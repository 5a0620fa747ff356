#pragma once

#include <functional>
#include <string>

#include "mrib/Transaction.h"

namespace mrib {

/// What names a configured route by its origin; none: by its line.
using OriginText = std::function<std::string(U64)>;

inline std::string nameOf(U64 origin, const OriginText& originText) {
  return originText ? originText(origin) : "line " + std::to_string(origin);
}

/// Puts the first of the routes that a refusal names, if there is one, in front of its text.
inline void nameOrigin(Refusal& refusal, const OriginText& originText) {
  if (refusal.origins.empty()) return;
  refusal.text = nameOf(refusal.origins.front(), originText) + ": " + refusal.text;
}

}  // namespace mrib
