#include <algorithm>

#include "inside/CBorder.h"

namespace mrib {

namespace {

Lumo::Ip6Addr v6Of(const uint8_t (&bytes)[16]) {
  Lumo::Ip6Addr::Bytes copy;
  std::copy_n(bytes, copy.size(), copy.begin());
  return Lumo::Ip6Addr(copy);
}

}  // namespace

mrib_ip cOf(const Lumo::IpGenAddr& address) {
  if (address.af() == Lumo::ipv4()) return cOf(address.v4Addr());
  mrib_ip ip{};
  if (address.af() != Lumo::AddressFamily::ipv6) return ip;
  ip.family = MRIB_IPV6;
  std::copy_n(address.v6Addr().bytes().begin(), sizeof ip.bytes, ip.bytes);
  return ip;
}

int readValue(const char* function, const char* what, const mrib_ip* from, Lumo::IpGenAddr& into) noexcept {
  if (!from) return failNull(function, what);
  switch (from->family) {
    case MRIB_NONE:
      into = {};
      return MRIB_OK;
    case MRIB_IPV4:
      into = Lumo::IpGenAddr(v4Of(*from));
      return MRIB_OK;
    case MRIB_IPV6:
      into = Lumo::IpGenAddr(v6Of(from->bytes));
      return MRIB_OK;
    default:
      return failFamily(function, what, from->family);
  }
}

int readValue(const char* function, const char* what, const mrib_prefix* from, Net& into) noexcept {
  if (!from) return failNull(function, what);
  mrib_ip ip{from->family, {}, {}};
  std::copy_n(from->bytes, sizeof ip.bytes, ip.bytes);
  into.length = from->length;
  return readValue(function, what, &ip, into.address);
}

namespace {

/// Writes a text into the caller's buffer.
int writeText(const char* function, const std::string& text, char* buffer, size_t size) noexcept {
  if (text.size() < size) {
    std::memcpy(buffer, text.c_str(), text.size() + 1);
    return MRIB_OK;
  }
  return fail(MRIB_ERROR_ARGUMENT, "%s: \"%s\" needs %zu bytes, the buffer has %zu", function, text.c_str(),
              text.size() + 1, size);
}

}  // namespace

}  // namespace mrib

using mrib::caught;
using mrib::failNull;

int mrib_ip_parse(const char* text, mrib_ip* ip) {
  if (!text) return failNull(__func__, "text");
  if (!ip) return failNull(__func__, "address");
  return caught(__func__, [&](const char* function) -> int {
    if (*text == '\0') return mrib::fail(MRIB_ERROR_ARGUMENT, "%s: \"\" is not an address", function);
    *ip = mrib::cOf(Lumo::IpGenAddr(text));
    return MRIB_OK;
  });
}

int mrib_prefix_parse(const char* text, mrib_prefix* prefix) {
  if (!text) return failNull(__func__, "text");
  if (!prefix) return failNull(__func__, "prefix");
  return caught(__func__, [&](const char* function) -> int {
    if (*text == '\0') return mrib::fail(MRIB_ERROR_ARGUMENT, "%s: \"\" is not a prefix", function);
    const mrib::Net net{std::string_view(text)};
    const mrib_ip ip = mrib::cOf(net.address);
    *prefix = {ip.family, static_cast<uint8_t>(net.length), {}, {}};
    std::copy_n(ip.bytes, sizeof ip.bytes, prefix->bytes);
    return MRIB_OK;
  });
}

const char* mrib_ip_text(const mrib_ip* ip, char* buffer, size_t size) {
  if (!buffer) return failNull(__func__, "buffer"), nullptr;
  const int code = caught(__func__, [&](const char* function) {
    Lumo::IpGenAddr address;
    if (const int bad = mrib::readValue(function, "address", ip, address); bad != MRIB_OK) return bad;
    return mrib::writeText(function, address.stringValue(), buffer, size);
  });
  return code == MRIB_OK ? buffer : nullptr;
}

const char* mrib_prefix_text(const mrib_prefix* prefix, char* buffer, size_t size) {
  if (!buffer) return failNull(__func__, "buffer"), nullptr;
  const int code = caught(__func__, [&](const char* function) {
    mrib::Net net{Lumo::IpGenAddr(), 0};
    if (const int bad = mrib::readValue(function, "prefix", prefix, net); bad != MRIB_OK) return bad;
    const bool isNone = prefix->family == MRIB_NONE;
    return mrib::writeText(function, isNone ? std::string() : net.stringValue(), buffer, size);
  });
  return code == MRIB_OK ? buffer : nullptr;
}
