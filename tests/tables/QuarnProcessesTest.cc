#include <signal.h>
#include <sys/wait.h>

#include <array>
#include <chrono>
#include <mutex>
#include <random>
#include <thread>

#include "QuarnRecords.h"
#include "Zan/Ptr.h"

// Readers and writers in processes and threads of their own, and what the system may do to them.

namespace {

using namespace QuarnRecords;

constexpr U32 stableRoutes = 300;
constexpr U32 stableFecs = 20;

struct Tables {
  RouteStatusWriter routes{1024};
  ForwardingStatusWriter fecs{128};

  /// Rewrites every record; beside them some routes come and go, so that deleted slots are used again.
  void change(U32 generation) {
    for (U32 n = 0; n < stableRoutes; ++n) routes.routeIs(routeOf(n, generation));
    for (U64 id = 0; id < stableFecs; ++id) fecs.fecIs(fecOf(id, generation));
    routes.routeIs(routeOf(stableRoutes + generation % 7, generation));
    routes.routeDel(prefixOf(stableRoutes + (generation + 3) % 7));
  }
};

/// Reads a table once: every record is there, whole.
template <class Table, class Find>
void readTable(const Table& table, U32 stable, Find find) {
  U32 seen = 0;
  table.forEach([&](const auto& record) {
    EXPECT_TRUE(consistent(record));
    seen += static_cast<U32>(record.fecId) < stable;
  });
  EXPECT_GE(seen, stable);
  for (U32 n = 0; n < stable; ++n) {
    const auto found = find(n);
    EXPECT_TRUE(found && consistent(*found));
  }
}

/// Nothing that it reads may be reported as corrupt.
struct Readers {
  explicit Readers(const Tables& tables) : routes(tables.routes.fd()), fecs(tables.fecs.fd()) {
    const auto fail = [](const std::string& m) { return ADD_FAILURE() << m, std::nullopt; };
    routes.corruptionHandlerIs(fail);
    fecs.corruptionHandlerIs(fail);
  }
  void readAll() const {
    readTable(routes, stableRoutes, [&](U32 n) { return routes.route(prefixOf(n)); });
    readTable(fecs, stableFecs, [&](U32 id) { return fecs.fec(id); });
  }
  RouteStatus routes;
  ForwardingStatus fecs;
};

/// A child process that changes the tables until it is stopped.
class WriterProcess {
 public:
  explicit WriterProcess(Tables& tables) : pid_(fork()) {
    if (pid_ != 0) return;
    alarm(60);  // should the parent die first
    for (U32 g = 1;; ++g) tables.change(g);
  }
  ~WriterProcess() { end(); }
  void stop() { send(SIGSTOP, WUNTRACED); }
  void go() { kill(pid_, SIGCONT); }
  void end() {
    if (pid_ > 0) send(SIGKILL, 0);
    pid_ = -1;
  }

 private:
  void send(int signal, int options) {
    int status = 0;
    ASSERT_GT(pid_, 0);
    ASSERT_EQ(kill(pid_, signal), 0);
    ASSERT_EQ(waitpid(pid_, &status, options), pid_);
  }
  pid_t pid_;
};

/// For MRIB_SECONDS.
TEST(QuarnProcesses, FourReadersSeeEveryRecordWholeWhileAnotherOneWrites) {
  Tables tables;
  tables.change(0);
  std::atomic<U64> reads = 0;
  U32 writes = 0;
  const U64 seconds = valueOf("MRIB_SECONDS", 2);
  {
    std::vector<std::jthread> threads(4);
    for (std::jthread& thread : threads) {
      thread = std::jthread([&](const std::stop_token& stop) {
        for (const Readers readers(tables); !stop.stop_requested(); reads += 2 * (stableRoutes + stableFecs))
          readers.readAll();
      });
    }
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(seconds);
    while (std::chrono::steady_clock::now() < end) tables.change(++writes);
  }
  std::cout << reads << " records read while " << writes << " times " << stableRoutes + stableFecs
            << " were written\n";
  EXPECT_GT(reads, 20000 * seconds);
  EXPECT_GT(writes, 10 * seconds);
}

struct Counted : Zan::VFPtrInterface {
  U64 value = 0;
};

TEST(QuarnProcesses, CountedReferencesGoFromThreadToThread) {
  const auto shared = Zan::create<Counted>();
  const U64 inUse = Zan::ZanMemPool::bytesInUse();
  {
    std::array<std::pair<std::mutex, Zan::Ptr<Counted>>, 3> places;
    std::vector<std::jthread> threads;
    for (U32 t = 0; t < 4; ++t) {
      threads.emplace_back([&, random = std::mt19937(t)]() mutable {
        for (U32 i = 0; i < 20000; ++i) {
          auto mine = i % 2 == 0 ? shared : Zan::create<Counted>();
          if (mine != shared) mine->value = i;
          auto& [lock, place] = places[random() % places.size()];
          const std::lock_guard guard(lock);
          std::swap(place, mine);
        }
      });
    }
  }
  EXPECT_EQ(Zan::ZanMemPool::bytesInUse(), inUse);
  EXPECT_EQ(shared->references(), 1u);
}

/// Whether the writer is in a slot of the forwarding table.
bool isInASlot(const Tables& tables) {
  constexpr off_t fecBytes = 8 * (Quarn::Fib::FecTraits::layout.payloadWords + 1);
  for (off_t slot = 0; slot < 128; ++slot) {
    U64 control = 0;
    EXPECT_EQ(pread(tables.fecs.fd(), &control, sizeof control, slotsAt + slot * fecBytes), 8);
    if (control % 2 != 0) return true;
  }
  return false;
}

TEST(QuarnProcesses, AWriterThatIsStoppedAndThenKilledInASlotDelaysNobodyAndLosesNothing) {
  Tables tables;
  tables.change(0);
  WriterProcess writer(tables);
  bool caught = false;
  for (int attempt = 0; attempt < 5000 && !caught; ++attempt) {
    usleep(100);
    writer.stop();
    caught = isInASlot(tables);
    if (!caught) writer.go();
  }
  ASSERT_TRUE(caught);
  const Readers readers(tables);
  const auto begin = std::chrono::steady_clock::now();
  readers.readAll();
  writer.end();
  readers.readAll();
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(500));
  EXPECT_TRUE(isInASlot(tables));
}

}  // namespace
