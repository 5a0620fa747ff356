#pragma once

#include <stdexcept>

namespace host {

/// The kernel, a file or a configuration could not be used; the text says what, where and why.
class Error : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace host
