#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cstring>
#include <vector>

#include "Quarn/Crc32c.h"
#include "Quarn/Fib/ForwardingStatus.h"
#include "Quarn/Fib/RouteStatus.h"
#include "Target.h"

// Writes the bytes into the slots of tables with right checksums, as a writer that is out of its mind would,
// into their headers, or anywhere: a reader gets records that mean something, or says which slot is corrupt;
// and its walks end.

namespace {

using fuzz::must;
using Quarn::Fib::Fec;
using Quarn::Fib::Route;

constexpr U64 slots = 8;
constexpr std::size_t headerPage = 4096;

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

/// Puts the bytes over a table's file: over its header, whose checksum is then made right again, or anywhere.
template <class Table, class Traits>
void overwrite(fuzz::Bytes bytes, bool ofHeader) {
  constexpr std::size_t headerSize = 56;
  if (bytes.size() < 2) return;
  Quarn::Segment good = Quarn::Segment::create(Traits::layout, slots);
  const U64 payload[Traits::layout.payloadWords] = {1};
  good.write(0, payload);
  std::vector<U64> file((headerPage + (slots + 1) * Traits::layout.slotWords() * sizeof(U64)) / sizeof(U64));
  const std::size_t size = file.size() * sizeof(U64);
  must(pread(good.fd(), file.data(), size, 0) == static_cast<ssize_t>(size));
  const std::size_t end = ofHeader ? headerSize : size;
  const std::size_t at = (bytes[0] + std::size_t{bytes[1]} * 256) % end;
  std::memcpy(reinterpret_cast<char*>(file.data()) + at, bytes.data() + 2,
              std::min(bytes.size() - 2, end - at));
  if (ofHeader) file[7] = Quarn::crc32c(file.data(), 7);
  const int fd = memfd_create("table", MFD_ALLOW_SEALING | MFD_CLOEXEC);
  must(write(fd, file.data(), size) == static_cast<ssize_t>(size) &&
       fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK) == 0);
  try {
    Table table(fd);
    table.corruptionHandlerIs([](const std::string&) { return std::nullopt; });
    table.forEach([](const typename Traits::Record& record) { must(isSound(record)); });
  } catch (const Zan::Exception& e) {
    must(*e.what() != 0);
  }
  close(fd);
}

template <class Table, class Traits>
void run(U8 how, fuzz::Bytes bytes) {
  how == 0 ? fill<Table, Traits>(bytes) : overwrite<Table, Traits>(bytes, how == 1);
}

void run(fuzz::Bytes bytes) {
  if (bytes.empty()) return;
  const auto how = static_cast<U8>(bytes[0] / 2 % 3);
  if (bytes[0] % 2 == 0) return run<Quarn::Fib::RouteStatus, Quarn::Fib::RouteTraits>(how, bytes.subspan(1));
  run<Quarn::Fib::ForwardingStatus, Quarn::Fib::FecTraits>(how, bytes.subspan(1));
}

const fuzz::Target target("tables", run);

}  // namespace
