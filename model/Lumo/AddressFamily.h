#pragma once

#include "Zan/Types.h"

namespace Lumo {

enum class AddressFamily : U8 { unknown = 0, ipv4 = 1, ipv6 = 2 };

constexpr AddressFamily unknown() {
  return AddressFamily::unknown;
}
constexpr AddressFamily ipv4() {
  return AddressFamily::ipv4;
}
constexpr AddressFamily ipv6() {
  return AddressFamily::ipv6;
}

}  // namespace Lumo
