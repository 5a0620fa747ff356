#pragma once

#include <linux/netlink.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <span>
#include <stdexcept>
#include <string>

#include "Values.h"

namespace host::kernel {

using Bytes = std::span<const U8>;

/// Bytes that are not what their place in a message asks for. Stays within the parser.
class MalformedBytes : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// A fixed structure at the start of `bytes`, which shrink by it. Copied, since nothing says that the bytes
/// are aligned.
template <class T>
T take(Bytes& bytes, const char* what) {
  if (bytes.size() < sizeof(T)) throw MalformedBytes(std::string(what) + ": cut off");
  T value;
  std::memcpy(&value, bytes.data(), sizeof value);
  bytes = bytes.subspan(sizeof value);
  return value;
}

/// A number that fills `payload` exactly.
template <class T>
T number(Bytes payload, const char* what) {
  if (payload.size() != sizeof(T)) throw MalformedBytes(std::string(what) + ": wrong size");
  return take<T>(payload, what);
}

/// A text of at least one character, up to its NUL or the end of the payload.
std::string text(Bytes payload, const char* what);

/// An address whose family follows from its size.
IpGenAddr address(Bytes payload, const char* what);

/// Calls `each(type, payload)` for every attribute in `bytes`, which must consist of attributes.
template <class F>
void forAttributes(Bytes bytes, F each) {
  struct Header {
    U16 length;
    U16 type;
  };
  constexpr U16 typeMask = 0x3FFF;  // the two bits above say nested and network order
  while (!bytes.empty()) {
    Bytes rest = bytes;
    const auto header = take<Header>(rest, "attribute");
    if (header.length < sizeof header || header.length > bytes.size()) {
      throw MalformedBytes("attribute: wrong length");
    }
    each(static_cast<U16>(header.type & typeMask), rest.first(header.length - sizeof header));
    bytes = bytes.subspan(std::min<std::size_t>((header.length + 3u) & ~3u, bytes.size()));
  }
}

/// Calls `each(header, body)` for every message of a datagram, which must consist of messages.
template <class F>
void forMessages(Bytes datagram, F each) {
  while (!datagram.empty()) {
    Bytes rest = datagram;
    const auto header = take<nlmsghdr>(rest, "message");
    if (header.nlmsg_len < sizeof header || header.nlmsg_len > datagram.size()) {
      throw MalformedBytes("message: wrong length");
    }
    each(header, rest.first(header.nlmsg_len - sizeof header));
    datagram = datagram.subspan(std::min<std::size_t>(NLMSG_ALIGN(header.nlmsg_len), datagram.size()));
  }
}

}  // namespace host::kernel
