#include "Zan/Exception.h"

namespace Zan {

namespace {
thread_local const Expect* innermostExpect = nullptr;
}  // namespace

Exception::Exception(std::string text, ExceptionId id) : text_(std::move(text)), id_(id) {}
Exception::~Exception() = default;
RangeException::~RangeException() = default;

void throwRangeException(std::string_view text) {
  throw RangeException(std::string(text));
}

Expect::Expect(ExceptionId id) : id_(id), outer_(innermostExpect) {
  innermostExpect = this;
}

Expect::~Expect() {
  innermostExpect = outer_;
}

bool Expect::expected(ExceptionId id) {
  for (const Expect* e = innermostExpect; e; e = e->outer_) {
    if (e->id_ == id) return true;
  }
  return false;
}

}  // namespace Zan
