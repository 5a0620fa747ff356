#include "Zan/Assert.h"

#include <atomic>
#include <cstdio>
#include <cstdlib>

namespace Zan {

namespace {
std::atomic<AssertionObserver> observer{nullptr};
}  // namespace

void assertionObserverIs(AssertionObserver o) {
  observer.store(o);
}

void assertionFailed(const AssertionFailure& f) {
  if (AssertionObserver o = observer.load()) o(f);
  std::fprintf(stderr, "%s:%u: %s: assertion `%s' failed\n", f.file, f.line, f.function, f.expression);
  std::fflush(stderr);
  std::abort();
}

}  // namespace Zan
