#pragma once

#if __has_include(<sys/single_threaded.h>)
#include <sys/single_threaded.h>
#endif

namespace Zan {

/// Whether this process has never had a second thread, so that a plain change of a shared word is as good as
/// a locked one, which costs several times as much. The C library keeps this; where it does not, the answer
/// is no.
inline bool singleThreaded() {
#if __has_include(<sys/single_threaded.h>)
  return __libc_single_threaded != 0;
#else
  return false;
#endif
}

}  // namespace Zan
