#pragma once

#include <memory>
#include <vector>

#include "Zan/Types.h"

namespace host::kernel {

/// An array that grows at its end and never moves an element: its growth costs no more when it is large.
template <class T>
class Segmented {
 public:
  std::size_t size() const { return size_; }
  T& operator[](std::size_t i) { return segments_[i / segmentSize][i % segmentSize]; }
  const T& operator[](std::size_t i) const { return segments_[i / segmentSize][i % segmentSize]; }
  void emplace_back() {
    if (size_ == segments_.size() * segmentSize) segments_.push_back(std::make_unique<T[]>(segmentSize));
    ++size_;
  }

 private:
  static constexpr std::size_t segmentSize = 1024;

  std::vector<std::unique_ptr<T[]>> segments_;
  std::size_t size_ = 0;
};

}  // namespace host::kernel
