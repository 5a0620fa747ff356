#pragma once

#include <string>
#include <string_view>

namespace host::control {

/// Bytes that come at one end and go at the other. Cost: a byte is moved at most twice.
class Queue {
 public:
  std::string_view bytes() const { return std::string_view(buffer_).substr(begin_); }
  std::size_t size() const { return buffer_.size() - begin_; }
  bool empty() const { return size() == 0; }
  /// To append to.
  std::string& buffer() { return buffer_; }
  void pop(std::size_t size);

 private:
  std::string buffer_;
  std::size_t begin_ = 0;
};

}  // namespace host::control
