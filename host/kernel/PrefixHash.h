#pragma once

#include <cstddef>

namespace host::kernel {

/// For the standard's tables by prefix, of either family.
struct PrefixHash {
  template <class Prefix>
  std::size_t operator()(const Prefix& prefix) const {
    return prefix.hash();
  }
};

}  // namespace host::kernel
