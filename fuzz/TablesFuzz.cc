#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cstring>

#include "Quarn/Crc32c.h"
#include "Quarn/Fib/ForwardingStatus.h"
#include "Quarn/Fib/RouteStatus.h"
#include "Target.h"

// Writes the bytes into the slots of tables with right checksums, as a writer that is out of its mind would:
// a reader gets records that mean something, or says which slot is corrupt; and its walks end.

namespace {

using fuzz::must;
using Quarn::Fib::Fec;
using Quarn::Fib::Route;

constexpr U64 slots = 8;

bool isSound(const Route& route) {
  return route.prefix.length() <= 32 &&
         (route.prefix.address().host() & ~Lumo::Prefix::mask(route.prefix.length())) == 0;
}
/// Whatever it counts: whoever walks its vias checks that.
bool isSound(const Fec&) {
  return true;
}

template <class Table, class Traits>
void fill(fuzz::Bytes bytes) {
  Quarn::Segment segment = Quarn::Segment::create(Traits::layout, slots);
  U64 payload[Traits::layout.payloadWords];
  for (U64 slot = 0; slot < slots && bytes.size() > 1; ++slot) {
    std::memset(payload, 0, sizeof payload);
    payload[0] = bytes[0] % 4;
    const std::size_t some =
        std::min({bytes.size() - 1, sizeof payload - sizeof payload[0], std::size_t{bytes[0]}});
    std::memcpy(payload + 1, bytes.data() + 1, some);
    bytes = bytes.subspan(1 + some);
    segment.write(slot, payload);
  }
  Table table(segment.fd());
  U32 bad = 0;
  table.corruptionHandlerIs([&](const std::string& message) {
    must(message.starts_with(Traits::layout.name));
    ++bad;
    return std::nullopt;
  });
  U32 good = 0;
  table.forEach([&](const typename Traits::Record& record) {
    must(isSound(record));
    ++good;
    const auto found = table.lookupOrHandled(Traits::keyOf(record));
    must(!found || Traits::keyOf(*found) == Traits::keyOf(record));
  });
  must(good <= slots && bad <= slots * (1 + good));
}

/// Puts the bytes over the header, whose checksum is made right again.
void header(fuzz::Bytes bytes) {
  const Quarn::Segment good = Quarn::Segment::create(Quarn::Fib::RouteTraits::layout, slots);
  std::array<U64, 600> file{};
  must(pread(good.fd(), file.data(), sizeof file, 0) > 0);
  const std::size_t at = bytes.empty() ? 0 : bytes[0] % 56;
  if (!bytes.empty())
    std::memcpy(reinterpret_cast<char*>(file.data()) + at, bytes.data() + 1,
                std::min(bytes.size() - 1, 56 - at));
  file[7] = Quarn::crc32c(file.data(), 7);
  const int fd = memfd_create("header", MFD_ALLOW_SEALING | MFD_CLOEXEC);
  must(write(fd, file.data(), sizeof file) == sizeof file && fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK) == 0);
  try {
    const Quarn::Fib::RouteStatus table(fd);
    table.forEach([](const Route& route) { must(isSound(route)); });
  } catch (const Zan::Exception& e) {
    must(*e.what() != 0);
  }
  close(fd);
}

void run(fuzz::Bytes bytes) {
  if (bytes.empty()) return;
  const fuzz::Bytes rest = bytes.subspan(1);
  switch (bytes[0] % 3) {
    case 0:
      return fill<Quarn::Fib::RouteStatus, Quarn::Fib::RouteTraits>(rest);
    case 1:
      return fill<Quarn::Fib::ForwardingStatus, Quarn::Fib::FecTraits>(rest);
    default:
      return header(rest);
  }
}

const fuzz::Target target("tables", run);

}  // namespace
