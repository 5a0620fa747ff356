#include "Quarn/Segment.h"

#include <fcntl.h>
#include <sys/mman.h>
#include <sys/random.h>
#include <sys/stat.h>
#include <unistd.h>

#include <bit>
#include <cerrno>
#include <cstring>

#include "Quarn/Allocation.h"
#include "Quarn/Crc32c.h"

#ifndef F_SEAL_FUTURE_WRITE
#define F_SEAL_FUTURE_WRITE 0x0010
#endif

namespace Quarn {

namespace {

constexpr std::size_t headerBytes = 4096;
constexpr U64 magicNumber = 0x6E7261755142494D;  // "MIBQuarn", lowest byte first
constexpr U32 abiMajor = 2;
constexpr U32 abiMinor = 0;
constexpr U32 endianMark = 0x01020304;

/// The start of a segment, in words; the last one is the CRC of the others.
struct Header {
  U64 magic;
  U32 endian;
  U32 major;
  U32 minor;
  U32 kind;
  U64 slotBytes;
  U64 slotCount;
  U64 layoutHash;
  U64 instance;
  U64 crc;

  U64 expectedCrc() const {
    U64 words[sizeof(Header) / 8];
    std::memcpy(words, this, sizeof words);
    return crc32c(words, sizeof words / 8 - 1);
  }
};
static_assert(sizeof(Header) % 8 == 0 && std::atomic<U64>::is_always_lock_free);

[[noreturn]] void refuse(const Layout& layout, const std::string& why) {
  throw Zan::Exception(std::string(layout.name) + ": can't attach: " + why);
}

[[noreturn]] void failed(const Layout& layout, const char* call) {
  throw Zan::Exception(std::string(layout.name) + ": " + call + ": " + std::strerror(errno));
}

U64 newInstance() {
  U64 value = 0;
  if (getrandom(&value, sizeof value, 0) != sizeof value || value == 0)
    value = static_cast<U64>(getpid()) + 1;
  return value;
}

void checkHeader(const Layout& layout, const Header& h, std::size_t fileBytes) {
  if (h.magic != magicNumber) refuse(layout, "it is no table segment");
  if (h.endian != endianMark) refuse(layout, "it was written with another byte order");
  if (h.crc != h.expectedCrc()) refuse(layout, "its header is corrupt");
  if (h.major != abiMajor)
    refuse(layout, "its version is " + std::to_string(h.major) + ", not " + std::to_string(abiMajor));
  if (h.kind != layout.kind) refuse(layout, "it is a table of another kind");
  if (h.layoutHash != layout.hash() || h.slotBytes != U64{8} * layout.slotWords()) {
    refuse(layout, "its slots have another layout");
  }
  if (!std::has_single_bit(h.slotCount)) refuse(layout, "its slot count is no power of two");
  // The journal is one slot more; a count that is not the writer's own must not be multiplied or added to.
  if ((fileBytes - headerBytes) / h.slotBytes <= h.slotCount) refuse(layout, "it is shorter than it claims");
}

std::size_t bytesFor(const Layout& layout, U64 slotCount) {
  const U64 slotBytes = U64{8} * layout.slotWords();
  if (!isMemoryFor(slotCount, slotBytes)) {
    throw Zan::Exception(std::string(layout.name) + ": no memory for " + std::to_string(slotCount) +
                         " slots");
  }
  return headerBytes + (slotCount + 1) * slotBytes;
}

/// The sequence number that a slot has when the write is done that has made it odd.
U32 afterWrite(U32 busy) {
  return busy + 1 == 0 ? 2 : busy + 1;
}

}  // namespace

CorruptionException::~CorruptionException() = default;

U64 Layout::hash() const {
  const U64 words[] = {kind, payloadWords, abiMajor};
  return crc32c(words, 3);
}

Segment& Segment::operator=(Segment&& other) noexcept {
  std::swap(layout_, other.layout_);
  std::swap(fd_, other.fd_);
  std::swap(base_, other.base_);
  std::swap(bytes_, other.bytes_);
  std::swap(instance_, other.instance_);
  std::swap(slotCount_, other.slotCount_);
  return *this;
}

Segment::~Segment() {
  if (base_) munmap(base_, bytes_);
  if (fd_ >= 0) close(fd_);
}

Segment Segment::create(const Layout& layout, U64 slotCount) {
  Segment s;
  s.layout_ = &layout;
  s.fd_ = memfd_create(layout.name, MFD_CLOEXEC | MFD_ALLOW_SEALING);
  if (s.fd_ < 0) failed(layout, "memfd_create");
  s.bytes_ = bytesFor(layout, slotCount);
  if (!allocate(s.fd_, s.bytes_)) failed(layout, "fallocate");
  void* base = mmap(nullptr, s.bytes_, PROT_READ | PROT_WRITE, MAP_SHARED, s.fd_, 0);
  if (base == MAP_FAILED) failed(layout, "mmap");
  s.base_ = base;
  s.instance_ = newInstance();
  s.slotCount_ = slotCount;
  Header h{magicNumber, endianMark,    abiMajor,    abiMinor, layout.kind, U64{8} * layout.slotWords(),
           slotCount,   layout.hash(), s.instance_, 0};
  h.crc = h.expectedCrc();
  std::memcpy(base, &h, sizeof h);
  constexpr int size = F_SEAL_SHRINK | F_SEAL_GROW;
  // Kernels before 5.1 do not know the seal against later writers; the size seals are what readers need.
  if (fcntl(s.fd_, F_ADD_SEALS, size | F_SEAL_FUTURE_WRITE) != 0 && fcntl(s.fd_, F_ADD_SEALS, size) != 0) {
    failed(layout, "F_ADD_SEALS");
  }
  return s;
}

Segment Segment::attach(const Layout& layout, int fd) {
  Segment s;
  s.layout_ = &layout;
  s.fd_ = fcntl(fd, F_DUPFD_CLOEXEC, 0);
  if (s.fd_ < 0) failed(layout, "dup");
  const int seals = fcntl(s.fd_, F_GET_SEALS);
  if (seals < 0 || (seals & F_SEAL_SHRINK) == 0) refuse(layout, "it is not sealed against shrinking");
  struct stat info {};
  if (fstat(s.fd_, &info) != 0) failed(layout, "fstat");
  s.bytes_ = static_cast<std::size_t>(info.st_size);
  if (s.bytes_ < headerBytes) refuse(layout, "it is too short for a header");
  void* base = mmap(nullptr, s.bytes_, PROT_READ, MAP_SHARED, s.fd_, 0);
  if (base == MAP_FAILED) failed(layout, "mmap");
  s.base_ = base;
  Header h;
  std::memcpy(&h, base, sizeof h);
  checkHeader(layout, h, s.bytes_);
  s.instance_ = h.instance;
  s.slotCount_ = h.slotCount;
  return s;
}

Segment::Word* Segment::slotAt(U64 slot) const {
  return reinterpret_cast<Word*>(static_cast<char*>(base_) + headerBytes) + slot * layout_->slotWords();
}

U32 Segment::placeCrc(U64 slot, U32 sequence) const {
  const U64 place[] = {instance_, slot, sequence};
  return crc32c(place, 3);
}

U32 Segment::crc(U64 slot, U32 sequence, const U64* payload) const {
  return crc32c(payload, layout_->payloadWords, ~placeCrc(slot, sequence));
}

// Everything is loaded with acquire and stored with release order: a reader that gets one new word, of the
// slot or of the journal, then also sees that the control word is no longer the one it started from. The
// journal is filled before the control word turns odd and kept until it is even again, so that a reader that
// finds the same odd number before and after has copied the journal of just this write.

Reading Segment::read(U64 slot, U64* payload, U32& retries) const {
  const Word* const words = slotAt(slot);
  for (;; --retries) {
    const U64 control = words[0].load(std::memory_order_acquire);
    if (control == 0) return {false, nullptr};
    const bool busy = control % 2 != 0;
    const U64 copied = copy(busy ? journal() : words, payload);
    if (words[0].load(std::memory_order_relaxed) == control) {
      return {true, fault(slot, control, copied, payload)};
    }
    if (retries == 0) return {true, "its writer changes it all the time"};
  }
}

/// Copies a slot or the journal; returns the control word.
U64 Segment::copy(const Word* words, U64* payload) const {
  const U64 control = words[0].load(std::memory_order_acquire);
  for (U32 i = 0; i < layout_->payloadWords; ++i) payload[i] = words[i + 1].load(std::memory_order_acquire);
  return control;
}

/// What is wrong with a copy that was taken while the slot's control word was `control`, else null.
const char* Segment::fault(U64 slot, U64 control, U64 copied, const U64* payload) const {
  const auto sequence = static_cast<U32>(control);
  const bool busy = sequence % 2 != 0;
  if (busy && control >> 32 != placeCrc(slot, sequence)) return "bad sequence number";
  const U32 expected = busy ? afterWrite(sequence) : sequence;
  if (static_cast<U32>(copied) == expected && copied >> 32 == crc(slot, expected, payload)) return nullptr;
  return busy ? "its writer left it half written" : "CRC mismatch";
}

void Segment::write(U64 slot, const U64* payload) {
  Word* const words = slotAt(slot);
  const U32 busy = static_cast<U32>(words[0].load(std::memory_order_relaxed)) | 1;
  const U32 after = afterWrite(busy);
  const U64 control = U64{crc(slot, after, payload)} << 32 | after;
  const auto fill = [&](Word* to) {
    for (U32 i = 0; i < layout_->payloadWords; ++i) to[i + 1].store(payload[i], std::memory_order_release);
    to[0].store(control, std::memory_order_release);
  };
  fill(journal());
  words[0].store(U64{placeCrc(slot, busy)} << 32 | busy, std::memory_order_release);
  fill(words);
}

std::string Segment::message(U64 slot, const std::string& reason) const {
  return std::string(layout_->name) + ": slot " + std::to_string(slot) + ": " + reason;
}

}  // namespace Quarn
