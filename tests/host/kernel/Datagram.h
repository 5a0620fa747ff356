#pragma once

#include <linux/rtnetlink.h>

#include <cstring>
#include <string>
#include <vector>

#include "Zan/Types.h"

/// Puts RTNETLINK messages together, byte by byte.
class Datagram {
 public:
  /// Starts a message.
  template <class Body>
  Datagram& message(U16 type, const Body& body, U16 flags = 0, U32 sequence = 0) {
    start_ = bytes_.size();
    put(nlmsghdr{0, type, flags, sequence, 0});
    put(body);
    return end();
  }
  template <class T>
  Datagram& attribute(U16 type, const T& value) {
    return attribute(type, &value, sizeof value);
  }
  Datagram& attribute(U16 type, const std::string& text) { return attribute(type, text.data(), text.size()); }
  Datagram& attribute(U16 type, const void* data, std::size_t size) {
    put(nlattr{static_cast<U16>(sizeof(nlattr) + size), type});
    append(data, size);
    return end();
  }
  const std::vector<U8>& bytes() const { return bytes_; }

 private:
  template <class T>
  void put(const T& value) {
    append(&value, sizeof value);
  }
  void append(const void* data, std::size_t size) {
    const auto* first = static_cast<const U8*>(data);
    bytes_.insert(bytes_.end(), first, first + size);
    bytes_.resize((bytes_.size() + 3) & ~std::size_t{3});
  }
  Datagram& end() {
    const auto length = static_cast<U32>(bytes_.size() - start_);
    std::memcpy(bytes_.data() + start_, &length, sizeof length);
    return *this;
  }

  std::vector<U8> bytes_;
  std::size_t start_ = 0;
};
