#include <cstdarg>
#include <cstdio>

#include "Zan/Exception.h"
#include "inside/CBorder.h"

// What was wrong with the last call of this thread that failed. One text has a place of its own, so that a
// look-up that fails takes no memory; the many of a transaction have theirs apart.

namespace {

constinit thread_local struct {
  char text[256];
  enum : U8 { none, one, many } count;
} last{{}, last.none};

thread_local std::vector<mrib::Refusal> refusals;

}  // namespace

namespace mrib {

int fail(mrib_code code, const char* format, ...) noexcept {
  std::va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(last.text, sizeof last.text, format, arguments);
  va_end(arguments);
  last.count = last.one;
  return code;
}

int fail(mrib_code code, std::vector<Refusal> all) noexcept {
  refusals = std::move(all);
  last.count = last.many;
  return code;
}

int failNull(const char* function, const char* what) noexcept {
  return fail(MRIB_ERROR_ARGUMENT, "%s: the %s is NULL", function, what);
}

int failFamily(const char* function, const char* what, unsigned family) noexcept {
  return fail(MRIB_ERROR_ARGUMENT, "%s: the family of the %s is %u, not MRIB_IPV4", function, what, family);
}

int failCaught(const char* function) noexcept {
  try {
    throw;
  } catch (const std::bad_alloc&) {
    return fail(MRIB_ERROR_MEMORY, "%s: no memory is left", function);
  } catch (const Zan::RangeException& e) {
    return fail(MRIB_ERROR_ARGUMENT, "%s: %s", function, e.what());
  } catch (const Zan::Exception& e) {  // the shared-memory tables can't be had
    return fail(MRIB_ERROR_MEMORY, "%s: %s", function, e.what());
  } catch (const std::exception& e) {
    return fail(MRIB_ERROR_BROKEN, "%s: %s", function, e.what());
  } catch (...) {
    return fail(MRIB_ERROR_BROKEN, "%s: an unknown exception", function);
  }
}

}  // namespace mrib

size_t mrib_error_count() {
  if (last.count == last.many) return refusals.size();
  return last.count == last.one ? 1 : 0;
}

const char* mrib_error_text(size_t i) {
  if (i >= mrib_error_count()) return nullptr;
  return last.count == last.many ? refusals[i].text.c_str() : last.text;
}

size_t mrib_error_origins(size_t i, uint64_t* origins, size_t room) {
  if (i >= mrib_error_count() || last.count != last.many) return 0;
  const std::vector<U64>& all = refusals[i].origins;
  if (origins) std::copy_n(all.begin(), std::min(room, all.size()), origins);
  return all.size();
}

uint32_t mrib_version() {
  return MRIB_VERSION;
}
