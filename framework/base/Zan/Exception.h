#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "Zan/Export.h"
#include "Zan/Types.h"

namespace Zan {

/// Kinds of exception that the framework itself raises; a catcher tells them apart by `Exception::id()`.
enum class ExceptionId : U32 { generic = 0, range = 1, corruption = 2, introspection = 3 };

/// Base of every exception thrown by the library. Carries an identifier and a text for people. One that is
/// made where its kind is not declared as expected (`Expect`) is traced on the handle "Zan" at level 0, so
/// that the trace shows it even if a catcher keeps it to himself; copies are not traced again.
class ZAN_EXPORT Exception : public std::exception {
 public:
  explicit Exception(std::string text, ExceptionId id = ExceptionId::generic);
  Exception(const Exception&) = default;
  Exception& operator=(const Exception&) = default;
  ~Exception() override;

  const char* what() const noexcept override { return text_.c_str(); }
  ExceptionId id() const { return id_; }

 private:
  std::string text_;
  ExceptionId id_;
};

/// An argument outside what is allowed: a null reference, a value out of range.
class ZAN_EXPORT RangeException : public Exception {
 public:
  explicit RangeException(std::string text) : Exception(std::move(text), ExceptionId::range) {}
  ~RangeException() override;
};

[[noreturn]] ZAN_EXPORT void throwRangeException(std::string_view text);

/// Traces the exception that is being handled, of whatever type, as one that nobody is told of: `where` says
/// who dropped it. For the last place that can catch it.
ZAN_EXPORT void traceDroppedException(std::string_view where);

/// Declares, for the lifetime of the object on this thread, that an exception of kind `id` is expected: it is
/// thrown as ever, but not traced. Declarations nest, and end in reverse order, which is asserted.
class ZAN_EXPORT Expect {
 public:
  explicit Expect(ExceptionId id);
  ~Expect();
  Expect(const Expect&) = delete;
  Expect& operator=(const Expect&) = delete;

  static bool expected(ExceptionId id);

 private:
  ExceptionId id_;
  const Expect* outer_;
};

}  // namespace Zan
