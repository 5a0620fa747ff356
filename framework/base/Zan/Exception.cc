#include "Zan/Exception.h"

#include "Zan/Assert.h"
#include "Zan/Trace.h"

namespace Zan {

namespace {

thread_local const Expect* innermostExpect = nullptr;
thread_local bool tracing = false;  // a sink that throws is not asked to trace that

/// Never destroyed: the last exception may be thrown after everything else of this file has gone.
TraceHandle& handle() {
  static TraceHandle* const made = new TraceHandle("Zan");
  return *made;
}
[[maybe_unused]] const TraceHandle& fromTheStart = handle();

std::string_view nameOf(ExceptionId id) {
  switch (id) {
    case ExceptionId::generic:
      break;
    case ExceptionId::range:
      return "range ";
    case ExceptionId::corruption:
      return "corruption ";
    case ExceptionId::introspection:
      return "introspection ";
  }
  return "";
}

void trace(std::string_view kind, std::string_view what, std::string_view text) {
  if (tracing) return;
  struct Busy {
    Busy() { tracing = true; }
    ~Busy() { tracing = false; }
  } const busy;
  ZAN_TRACE(handle(), nullptr, 0, kind << what << text);
}

}  // namespace

Exception::Exception(std::string text, ExceptionId id) : text_(std::move(text)), id_(id) {
  if (!Expect::expected(id)) trace(nameOf(id), "exception: ", text_);
}
Exception::~Exception() = default;
RangeException::~RangeException() = default;

void throwRangeException(std::string_view text) {
  throw RangeException(std::string(text));
}

void traceDroppedException(std::string_view where) {
  try {
    throw;
  } catch (const std::exception& e) {
    trace(where, " threw: ", e.what());
  } catch (...) {
    trace(where, " threw", "");
  }
}

Expect::Expect(ExceptionId id) : id_(id), outer_(innermostExpect) {
  innermostExpect = this;
}

Expect::~Expect() {
  ZAN_ASSERT_TEXT(innermostExpect == this, "the innermost Expect of its thread ends first");
  innermostExpect = outer_;
}

bool Expect::expected(ExceptionId id) {
  for (const Expect* e = innermostExpect; e; e = e->outer_) {
    if (e->id_ == id) return true;
  }
  return false;
}

}  // namespace Zan
