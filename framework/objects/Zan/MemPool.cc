#include "Zan/MemPool.h"

#include <sys/mman.h>

#include <array>
#include <atomic>
#include <new>
#include <utility>

#include "Zan/SingleThreaded.h"

namespace Zan {

namespace {

#if defined(__SANITIZE_ADDRESS__)
constexpr bool pooling = false;
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
constexpr bool pooling = false;
#else
constexpr bool pooling = true;
#endif
#else
constexpr bool pooling = true;
#endif

constexpr std::size_t granule = 16;
constexpr std::size_t lineBytes = 64;
constexpr std::size_t pageBytes = 4096;
constexpr std::size_t largest = 512;
constexpr std::size_t chunkBytes = std::size_t{64} * 1024;

struct FreeObject {
  FreeObject* next;
};
struct Chunk {
  char objects[chunkBytes - granule];
  Chunk* next;
};
static_assert(sizeof(Chunk) <= chunkBytes);

/// The objects of one size. The lock is held for a few instructions, so waiters spin.
class alignas(64) SizeClass {
 public:
  void* take(std::size_t size) { return singleThreaded() ? takeAlone(size) : takeLocked(size); }
  void give(void* object) noexcept {
    if (singleThreaded()) {
      giveAlone(object);
    } else {
      giveLocked(object);
    }
  }
  U64 used() {
    const Lock lock(busy_);
    return used_;
  }
  U64 chunks() {
    const Lock lock(busy_);
    return chunks_;
  }

 private:
  struct Lock {
    explicit Lock(std::atomic_flag& f) : flag(f) {
      while (flag.test_and_set(std::memory_order_acquire)) {
      }
    }
    ~Lock() { flag.clear(std::memory_order_release); }
    Lock(const Lock&) = delete;
    Lock& operator=(const Lock&) = delete;
    std::atomic_flag& flag;
  };

  // The rare ways are kept out of line, so that the usual one is short.
  [[gnu::noinline]] void* takeLocked(std::size_t size) {
    const Lock lock(busy_);
    return takeAlone(size);
  }
  [[gnu::noinline]] void giveLocked(void* object) noexcept {
    const Lock lock(busy_);
    giveAlone(object);
  }
  void* takeAlone(std::size_t size) {
    if (free_) {
      FreeObject* object = free_;
      free_ = object->next;
      if (free_) {  // objects come back in any order: the next one is fetched while this one is put to use
        __builtin_prefetch(free_, 1);
        if (size > lineBytes) __builtin_prefetch(reinterpret_cast<const char*>(free_) + lineBytes, 1);
      }
      ++used_;
      return object;
    }
    if (static_cast<std::size_t>(end_ - next_) < size) return takeFromNextChunk(size);
    ++used_;
    return std::exchange(next_, next_ + size);
  }
  void giveAlone(void* object) noexcept {
    free_ = new (object) FreeObject{free_};
    if (--used_ == 0) beginAgain();
  }

  /// When all have come back, they are handed out as at first: neighbours one after the other, which memory
  /// serves best.
  [[gnu::noinline]] void beginAgain() {
    free_ = nullptr;
    link_ = &first_;
    next_ = end_ = nullptr;
  }
  [[gnu::noinline]] void* takeFromNextChunk(std::size_t size) {
    if (!*link_) *link_ = newChunk();
    Chunk& chunk = **link_;
    next_ = chunk.objects;
    end_ = next_ + sizeof chunk.objects;
    link_ = &chunk.next;
    return takeAlone(size);
  }
  Chunk* newChunk() {
    auto* chunk = new (::operator new(chunkBytes, std::align_val_t(pageBytes))) Chunk;
#ifdef MADV_POPULATE_WRITE
    madvise(chunk, chunkBytes, MADV_POPULATE_WRITE);  // one system call, not a page fault for each page
#endif
    chunk->next = nullptr;
    ++chunks_;
    return chunk;
  }

  std::atomic_flag busy_ = ATOMIC_FLAG_INIT;
  FreeObject* free_ = nullptr;  // given back
  char* next_ = nullptr;        // what is left of the chunk that is being handed out
  char* end_ = nullptr;
  Chunk* first_ = nullptr;
  Chunk** link_ = &first_;  // to the chunk that comes next
  U64 used_ = 0;
  U64 chunks_ = 0;
};

constinit std::array<SizeClass, largest / granule> classes{};

std::size_t classOf(std::size_t size) {
  return (size + granule - 1) / granule - 1;
}

}  // namespace

void* ZanMemPool::allocate(std::size_t size) {
  if (!pooling || size > largest || size == 0) return ::operator new(size);
  const std::size_t c = classOf(size);
  return classes[c].take((c + 1) * granule);
}

void ZanMemPool::release(void* object, std::size_t size) noexcept {
  if (!pooling || size > largest || size == 0) {
    ::operator delete(object);
  } else {
    classes[classOf(size)].give(object);
  }
}

U64 ZanMemPool::bytesInUse() {
  U64 total = 0;
  for (std::size_t c = 0; c < classes.size(); ++c) total += classes[c].used() * (c + 1) * granule;
  return total;
}

U64 ZanMemPool::bytesHeld() {
  U64 total = 0;
  for (SizeClass& c : classes) total += c.chunks() * chunkBytes;
  return total;
}

}  // namespace Zan
