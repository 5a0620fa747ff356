#pragma once

#include <cstddef>
#include <cstring>
#include <new>
#include <utility>

#include "mrib.h"
#include "mrib/Agent.h"

// What the C functions are made of. An exception ends here: it becomes a code, and a text of this thread.

/// Changes from one generation to the next, as they are handed out.
struct mrib_changes {
  std::span<const mrib::Change> all;
};

struct mrib_agent {
  /// A transaction, with what of it was not taken.
  struct Pending {
    mrib::Transaction transaction;
    std::vector<mrib::Refusal> faults;
    std::size_t faultCount = 0;

    void clear() {
      transaction.clear();
      faults.clear();
      faultCount = 0;
    }
  };

  explicit mrib_agent(const mrib::Agent::Options& options) : agent(options) {}

  mrib::Agent agent;
  Pending pending;    // the open one
  Pending committed;  // the last one that was committed: another may be opened while listeners hear of it
  bool open = false;
  U32 callbacks = 0;                  // that are under way
  std::vector<mrib::Change> changes;  // of the last commit or settling
  mrib_changes handedOut{};           // the same
};

namespace mrib {

/// Sets the text and returns the code. The text is cut off at 255 characters and takes no memory.
[[gnu::format(printf, 2, 3)]] int fail(mrib_code code, const char* format, ...) noexcept;
/// Sets all texts.
int fail(mrib_code code, std::vector<Refusal> refusals) noexcept;
/// For the exception that is being handled.
int failCaught(const char* function) noexcept;
int failNull(const char* function, const char* what) noexcept;

/// Runs what may throw, and tells it the function for its texts.
template <class F>
int caught(const char* function, F f) noexcept {
  try {
    return f(function);
  } catch (...) {
    return failCaught(function);
  }
}
/// Whether there is an agent; if not, the code of that.
inline int check(const char* function, const mrib_agent* agent) noexcept {
  return agent ? int{MRIB_OK} : failNull(function, "agent");
}
template <class F>
int with(const char* function, const mrib_agent* agent, F f) noexcept {
  const int code = check(function, agent);
  return code == MRIB_OK ? caught(function, f) : code;
}

/// While it lives, a callback is under way.
class InCallback {
 public:
  explicit InCallback(mrib_agent& agent) : agent_(agent) { ++agent_.callbacks; }
  ~InCallback() { --agent_.callbacks; }
  InCallback(const InCallback&) = delete;
  InCallback& operator=(const InCallback&) = delete;

 private:
  mrib_agent& agent_;
};

// ---- Sized structs ----

/// No struct ever gets larger; what claims to be is garbage.
constexpr std::size_t mostSize = 4096;
/// The size that a struct began with: smaller ones have never been.
template <class T>
constexpr std::size_t leastSize = sizeof(T);
template <>
inline constexpr std::size_t leastSize<mrib_link> = offsetof(mrib_link, flags);
template <>
inline constexpr std::size_t leastSize<mrib_address> = offsetof(mrib_address, flags);
template <>
inline constexpr std::size_t leastSize<mrib_mroute> = offsetof(mrib_mroute, origin);
template <>
inline constexpr std::size_t leastSize<mrib_route> = offsetof(mrib_route, next_hops);
template <>
inline constexpr std::size_t leastSize<mrib_status> = offsetof(mrib_status, healed);

template <class T>
int checkSized(const char* function, const char* what, const T* value) noexcept {
  if (!value) return failNull(function, what);
  if (value->size >= leastSize<T> && value->size <= mostSize) return MRIB_OK;
  return fail(MRIB_ERROR_SIZE, "%s: the size of the %s is %u, which is none that it ever had (%zu now)",
              function, what, value->size, sizeof(T));
}
/// Copies what a caller has set; what his struct does not have is 0.
template <class T>
int readSized(const char* function, const char* what, const T* from, T& into) noexcept {
  if (const int code = checkSized(function, what, from); code != MRIB_OK) return code;
  into = T{};
  std::memcpy(&into, from, std::min<std::size_t>(from->size, sizeof(T)));
  const auto* bytes = reinterpret_cast<const unsigned char*>(from);
  for (std::size_t i = sizeof(T); i < from->size; ++i) {
    if (bytes[i] == 0) continue;
    return fail(MRIB_ERROR_SIZE, "%s: the %s sets a field at byte %zu that this library does not know",
                function, what, i);
  }
  return MRIB_OK;
}
/// Writes all but the size, which is the caller's; what this library does not know becomes 0.
template <class T>
void writeSized(const T& from, T* into) noexcept {
  constexpr std::size_t behind = sizeof(into->size);
  const std::size_t size = into->size;
  auto* bytes = reinterpret_cast<unsigned char*>(into);
  std::memcpy(bytes + behind, reinterpret_cast<const unsigned char*>(&from) + behind,
              std::min(size, sizeof(T)) - behind);
  if (size > sizeof(T)) std::memset(bytes + sizeof(T), 0, size - sizeof(T));
}

// ---- Values ----

/// Of an address or a prefix.
template <class T>
Lumo::IpAddr v4Of(const T& ip) {
  U32 network;
  std::memcpy(&network, ip.bytes, sizeof network);
  return Lumo::IpAddr::fromNetwork(network);
}
inline mrib_ip cOf(Lumo::IpAddr address) {
  const U32 network = address.network();
  return mrib_ipv4(&network);
}
inline mrib_prefix cOf(const Lumo::Prefix& prefix) {
  const U32 network = prefix.address().network();
  return mrib_ipv4_prefix(&network, prefix.length());
}
mrib_ip cOf(const Lumo::IpGenAddr& address);
/// An address and a prefix of any family, or of none.
int readValue(const char* function, const char* what, const mrib_ip* from, Lumo::IpGenAddr& into) noexcept;
int readValue(const char* function, const char* what, const mrib_prefix* from, Net& into) noexcept;
/// Only IPv4 gets in.
int failFamily(const char* function, const char* what, unsigned family) noexcept;

}  // namespace mrib
