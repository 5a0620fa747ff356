#pragma once

#include <string>

#include "Zan/Types.h"

namespace mrib {

/// How texts name a configured route by its origin.
inline std::string lineText(U64 origin) {
  return "line " + std::to_string(origin);
}

}  // namespace mrib
