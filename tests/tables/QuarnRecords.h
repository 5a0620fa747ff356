#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstdlib>
#include <vector>

#include "Quarn/Crc32c.h"
#include "Quarn/Fib/ForwardingStatus.h"
#include "Quarn/Fib/RouteStatus.h"

// Records whose every field follows from a few numbers, and ways to get at the bytes of a table.

namespace QuarnRecords {

using Quarn::Fib::Fec;
using Quarn::Fib::ForwardingStatus;
using Quarn::Fib::ForwardingStatusWriter;
using Quarn::Fib::Route;
using Quarn::Fib::RouteStatus;
using Quarn::Fib::RouteStatusWriter;
using Routing::Fib::RouteType;

/// A number from the environment.
inline U64 valueOf(const char* name, U64 usual) {
  const char* text = std::getenv(name);
  return text ? std::strtoull(text, nullptr, 10) : usual;
}

inline Lumo::Prefix prefixOf(U32 n) {
  return {Lumo::IpAddr::fromHost(n << 8), 24};
}

/// A route whose every field follows from its prefix and a generation.
inline Route routeOf(U32 n, U32 generation) {
  return {prefixOf(n), RouteType::connected, static_cast<U8>(generation), U64{generation} << 32 | n};
}

inline bool consistent(const Route& r) {
  const U32 n = r.prefix.address().host() >> 8;
  return r.prefix.length() == 24 && static_cast<U32>(r.fecId) == n &&
         static_cast<U8>(r.fecId >> 32) == r.preference;
}

/// A FEC whose every via follows from its id and a generation.
inline Fec fecOf(U64 id, U32 generation) {
  Fec fec{id, Fec::maxVias, {}};
  for (U32 i = 0; i < Fec::maxVias; ++i) {
    fec.via[i] = {Lumo::IpAddr::fromHost(generation), Lumo::IntfId(static_cast<U32>(id) + i)};
  }
  return fec;
}

inline bool consistent(const Fec& fec) {
  for (U32 i = 0; i < Fec::maxVias; ++i) {
    if (fec.via[i].hop != fec.via[0].hop || fec.via[i].intf.value() != fec.fecId + i) return false;
  }
  return fec.viaCount == Fec::maxVias;
}

/// A sealed copy of a table that, unlike the original, anybody can write to.
class Copy {
 public:
  explicit Copy(int original) : fd_(memfd_create("copy", MFD_ALLOW_SEALING)) {
    std::vector<char> bytes(static_cast<std::size_t>(lseek(original, 0, SEEK_END)));
    EXPECT_EQ(pread(original, bytes.data(), bytes.size(), 0), std::ssize(bytes));
    EXPECT_EQ(write(fd_, bytes.data(), bytes.size()), std::ssize(bytes));
    EXPECT_EQ(fcntl(fd_, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW), 0);
  }
  ~Copy() { close(fd_); }
  Copy(const Copy&) = delete;
  Copy& operator=(const Copy&) = delete;
  operator int() const { return fd_; }

 private:
  const int fd_;
};

inline constexpr off_t slotsAt = 4096;
inline constexpr off_t slotBytes = 32;

/// Where the control word of a route's slot is in the file.
inline off_t slotAt(U64 slot) {
  return slotsAt + static_cast<off_t>(slot) * slotBytes;
}

/// The control word of a slot that its writer is in.
inline U64 busyControl(U64 instance, U64 slot, U32 sequence) {
  const U64 place[] = {instance, slot, sequence};
  return U64{Quarn::crc32c(place, 3)} << 32 | sequence;
}

inline void wordIs(int fd, off_t at, U64 word) {
  EXPECT_EQ(pwrite(fd, &word, sizeof word, at), 8);
}

inline void flipBit(int fd, off_t at, U32 bit) {
  U8 byte = 0;
  EXPECT_EQ(pread(fd, &byte, 1, at), 1);
  byte = static_cast<U8>(byte ^ 1u << bit);
  EXPECT_EQ(pwrite(fd, &byte, 1, at), 1);
}

}  // namespace QuarnRecords
