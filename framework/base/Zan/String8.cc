#include "Zan/String8.h"

#include <atomic>
#include <cstring>
#include <new>

#include "Zan/Exception.h"

namespace Zan {

/// Count and length, followed in the same allocation by the bytes and a zero.
struct String8::Rep {
  explicit Rep(std::size_t n) : size(n) {}
  char* bytes() { return reinterpret_cast<char*>(this + 1); }

  std::atomic<U32> references{1};
  std::size_t size;
};

String8::String8(std::string_view bytes) {
  if (bytes.empty()) return;
  rep_ = new (::operator new(sizeof(Rep) + bytes.size() + 1)) Rep(bytes.size());
  std::memcpy(rep_->bytes(), bytes.data(), bytes.size());
  rep_->bytes()[bytes.size()] = '\0';
}

String8::String8(const String8& other) noexcept : rep_(other.rep_) {
  if (rep_) rep_->references.fetch_add(1, std::memory_order_relaxed);
}

String8::~String8() {
  if (rep_ && rep_->references.fetch_sub(1, std::memory_order_acq_rel) == 1) {
    rep_->~Rep();
    ::operator delete(rep_);
  }
}

const char* String8::refuseNull() {
  throwRangeException("null bytes parameter to Zan::String8 not allowed");
}

std::string_view String8::view() const {
  return rep_ ? std::string_view(rep_->bytes(), rep_->size) : std::string_view("");
}

}  // namespace Zan
