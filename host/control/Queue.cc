#include "Queue.h"

namespace host::control {

namespace {

constexpr std::size_t keptBuffer = 256 << 10;  // of a queue that ran empty

}  // namespace

void Queue::pop(std::size_t size) {
  begin_ += size;
  if (empty()) {
    buffer_.clear();
    if (buffer_.capacity() > keptBuffer) buffer_.shrink_to_fit();
    begin_ = 0;
  } else if (begin_ > buffer_.size() / 2) {
    buffer_.erase(0, begin_);
    begin_ = 0;
  }
}

}  // namespace host::control
