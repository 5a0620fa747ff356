#include "Zan/Now.h"

#include <chrono>

namespace Zan {

double now() {
  return std::chrono::duration<double>(std::chrono::system_clock::now().time_since_epoch()).count();
}

}  // namespace Zan
