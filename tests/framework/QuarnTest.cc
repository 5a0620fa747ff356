#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <map>
#include <random>
#include <thread>

#include "Quarn/Crc32c.h"
#include "Quarn/Fib/ForwardingStatus.h"
#include "Quarn/Fib/RouteStatus.h"

namespace {

using Quarn::Fib::Fec;
using Quarn::Fib::ForwardingStatus;
using Quarn::Fib::ForwardingStatusWriter;
using Quarn::Fib::Route;
using Quarn::Fib::RouteStatus;
using Quarn::Fib::RouteStatusWriter;
using Routing::Fib::RouteType;

Lumo::Prefix prefixOf(U32 n) {
  return {Lumo::IpAddr::fromHost(n << 8), 24};
}

/// A route whose every field follows from its prefix and a generation.
Route routeOf(U32 n, U32 generation) {
  return {prefixOf(n), RouteType::connected, static_cast<U8>(generation), U64{generation} << 32 | n};
}

bool consistent(const Route& r) {
  const U32 n = r.prefix.address().host() >> 8;
  return r.prefix.length() == 24 && static_cast<U32>(r.fecId) == n &&
         static_cast<U8>(r.fecId >> 32) == r.preference;
}

/// A FEC whose every via follows from its id and a generation.
Fec fecOf(U64 id, U32 generation) {
  Fec fec{id, Fec::maxVias, {}};
  for (U32 i = 0; i < Fec::maxVias; ++i) {
    fec.via[i] = {Lumo::IpAddr::fromHost(generation), Lumo::IntfId(static_cast<U32>(id) + i)};
  }
  return fec;
}

bool consistent(const Fec& fec) {
  for (U32 i = 0; i < Fec::maxVias; ++i) {
    if (fec.via[i].hop != fec.via[0].hop || fec.via[i].intf.value() != fec.fecId + i) return false;
  }
  return fec.viaCount == Fec::maxVias;
}

/// A sealed copy that, unlike the original, anybody can write to.
int copyOf(int fd) {
  std::vector<char> bytes(static_cast<std::size_t>(lseek(fd, 0, SEEK_END)));
  EXPECT_EQ(pread(fd, bytes.data(), bytes.size(), 0), std::ssize(bytes));
  const int copy = memfd_create("copy", MFD_ALLOW_SEALING);
  EXPECT_EQ(write(copy, bytes.data(), bytes.size()), std::ssize(bytes));
  EXPECT_EQ(fcntl(copy, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW), 0);
  return copy;
}

constexpr off_t slotsAt = 4096;
constexpr off_t slotBytes = 32;

void flipBit(int fd, off_t at, U32 bit) {
  U8 byte = 0;
  EXPECT_EQ(pread(fd, &byte, 1, at), 1);
  byte = static_cast<U8>(byte ^ 1u << bit);
  EXPECT_EQ(pwrite(fd, &byte, 1, at), 1);
}

TEST(Quarn, CrcMatchesThePublishedValuesOnBothPaths) {
  // RFC 3720, B.4: 32 bytes of zeros, of ones, and counting up.
  const std::array<std::array<U64, 4>, 3> inputs = {
      {{},
       {~0ull, ~0ull, ~0ull, ~0ull},
       {0x0706050403020100, 0x0F0E0D0C0B0A0908, 0x1716151413121110, 0x1F1E1D1C1B1A1918}}};
  const std::array<U32, 3> expected = {0x8A9136AA, 0x62A8AB43, 0x46DD794E};
  for (std::size_t i = 0; i < inputs.size(); ++i) {
    EXPECT_EQ(Quarn::crc32c(inputs[i].data(), 4), expected[i]);
    U32 crc = 0xFFFFFFFF;
    for (const U64 word : inputs[i]) crc = Quarn::crc32cTableStep(crc, word);
    EXPECT_EQ(~crc, expected[i]);
  }
}

TEST(Quarn, ReaderFollowsChangesAndGrowth) {
  std::mt19937 random(7);
  RouteStatusWriter writer;
  RouteStatus reader(writer.fd());
  std::map<U32, U32> reference;
  for (U32 step = 0; step < 20000; ++step) {
    const auto n = static_cast<U32>(random() % 700);
    if (random() % 3 == 0) {
      writer.routeDel(prefixOf(n));
      reference.erase(n);
    } else {
      writer.routeIs(routeOf(n, step));
      reference[n] = step;
    }
    if (reader.instance() != writer.instance()) reader.attach(writer.fd());
    const auto found = reader.route(prefixOf(n));
    ASSERT_EQ(found.has_value(), reference.contains(n));
    ASSERT_TRUE(!found || consistent(*found));
  }
  std::size_t walked = 0;
  reader.forEach([&](const Route& r) {
    ++walked;
    EXPECT_TRUE(reference.contains(r.prefix.address().host() >> 8));
  });
  EXPECT_EQ(walked, reference.size());
  EXPECT_EQ(writer.count(), reference.size());
}

TEST(Quarn, DeletedSlotsAreUsedAgainSoThatATableInSteadyUseStaysSmall) {
  RouteStatusWriter writer;
  const U64 first = writer.instance();
  for (U32 n = 0; n < 32; ++n) writer.routeIs(routeOf(n, 1));
  for (U32 g = 0; g < 1000; ++g) {
    writer.routeDel(prefixOf(g % 32));
    writer.routeIs(routeOf(g % 32, g));
  }
  EXPECT_EQ(writer.instance(), first) << "a table that is as full as it may be takes back what left it";
  for (U32 n = 32; n < 20000; ++n) {
    writer.routeIs(routeOf(n, 1));
    writer.routeDel(prefixOf(n - 32));
  }
  const RouteStatus reader(writer.fd());
  EXPECT_LE(reader.slotCount(), 128u);
  for (U32 n = 19968; n < 20000; ++n) EXPECT_TRUE(reader.route(prefixOf(n)));
  EXPECT_EQ(writer.count(), 32u);
}

TEST(Quarn, WalkGoesThroughTheSlotsInOrder) {
  RouteStatusWriter writer;
  for (U32 n = 0; n < 25; ++n) writer.routeIs(routeOf(n, 1));
  const RouteStatus reader(writer.fd());
  std::vector<U64> slots;
  for (auto i = reader.iterator(); i; ++i) {
    EXPECT_TRUE(consistent(*i));
    slots.push_back(i.slot());
  }
  EXPECT_EQ(slots.size(), 25u);
  EXPECT_TRUE(std::is_sorted(slots.begin(), slots.end()));
}

std::string refusal(int fd) {
  try {
    const RouteStatus reader(fd);
  } catch (const Zan::Exception& e) {
    return e.what();
  }
  return "attached";
}

TEST(Quarn, AttachRefusesWhatIsNoSealedTableOfItsKind) {
  const ForwardingStatusWriter fecs;
  EXPECT_EQ(refusal(fecs.fd()), "Quarn::Fib::RouteStatus: can't attach: it is a table of another kind");
  const int plain = memfd_create("plain", MFD_ALLOW_SEALING);
  ASSERT_EQ(ftruncate(plain, 8192), 0);
  EXPECT_NE(refusal(plain).find("not sealed"), std::string::npos);
  ASSERT_EQ(fcntl(plain, F_ADD_SEALS, F_SEAL_SHRINK), 0);
  EXPECT_NE(refusal(plain).find("no table segment"), std::string::npos);
  close(plain);
  const RouteStatusWriter good;
  std::vector<char> bytes(4096);
  ASSERT_EQ(pread(good.fd(), bytes.data(), bytes.size(), 0), 4096);
  const auto copy = [&](std::size_t flip) {
    const int fd = memfd_create("copy", MFD_ALLOW_SEALING);
    bytes[flip] = static_cast<char>(bytes[flip] ^ 1);
    EXPECT_EQ(write(fd, bytes.data(), bytes.size()), 4096);
    bytes[flip] = static_cast<char>(bytes[flip] ^ 1);
    EXPECT_EQ(fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK), 0);
    const std::string said = refusal(fd);
    close(fd);
    return said;
  };
  EXPECT_NE(copy(40).find("header is corrupt"), std::string::npos);
  EXPECT_NE(copy(4095).find("shorter than it claims"), std::string::npos);
  EXPECT_NE(refusal(-1).find("dup"), std::string::npos);
}

TEST(Quarn, ARefusedSegmentLeavesTheReaderWhereItWas) {
  RouteStatusWriter writer;
  writer.routeIs(routeOf(1, 1));
  RouteStatus reader(writer.fd());
  const ForwardingStatusWriter other;
  EXPECT_THROW(reader.attach(other.fd()), Zan::Exception);
  EXPECT_TRUE(reader.route(prefixOf(1)));
}

// ---- Concurrent change ----

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

template <class Table, class Count>
void walkIsWhole(const Table& table, std::vector<std::string>& faults, U64 stable, Count isStable) {
  faults.clear();
  U64 seen = 0;
  table.forEach([&](const auto& record) {
    EXPECT_TRUE(consistent(record));
    seen += isStable(record);
  });
  // On a busy machine the writer may be off the processor for longer than its readers wait.
  for (const std::string& fault : faults)
    EXPECT_TRUE(fault.ends_with("its writer does not leave it")) << fault;
  EXPECT_GE(seen + faults.size(), stable);
}

/// Reads both tables for a fifth of a second.
void readWhileChanging(const Tables& tables) {
  RouteStatus routes(tables.routes.fd());
  ForwardingStatus fecs(tables.fecs.fd());
  std::vector<std::string> faults;
  routes.corruptionHandlerIs([&](const std::string& m) { return faults.push_back(m), std::nullopt; });
  fecs.corruptionHandlerIs([&](const std::string& m) { return faults.push_back(m), std::nullopt; });
  const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(200);
  while (std::chrono::steady_clock::now() < end) {
    walkIsWhole(routes, faults, stableRoutes,
                [](const Route& r) { return static_cast<U32>(r.fecId) < stableRoutes; });
    walkIsWhole(fecs, faults, stableFecs, [](const Fec&) { return true; });
    for (U32 n = 0; n < stableRoutes; ++n) {
      const auto found = routes.lookupOrHandled(prefixOf(n));
      EXPECT_TRUE(found ? consistent(*found) : !faults.empty());
    }
  }
}

TEST(Quarn, ReaderSeesEveryRecordWholeWhileAnotherProcessWrites) {
  Tables tables;
  tables.change(0);
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    alarm(60);  // should the parent die first
    for (U32 g = 1;; ++g) tables.change(g);
  }
  readWhileChanging(tables);
  kill(child, SIGKILL);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) && WTERMSIG(status) == SIGKILL);
}

TEST(Quarn, ReaderSeesEveryRecordWholeWhileAnotherThreadWrites) {
  Tables tables;
  tables.change(0);
  std::atomic<bool> stop = false;
  std::thread writer([&] {
    for (U32 g = 1; !stop; ++g) tables.change(g);
  });
  readWhileChanging(tables);
  stop = true;
  writer.join();
}

// ---- Corruption ----

TEST(Quarn, AFlippedBitIsReportedAndTheOtherRecordsStillCome) {
  std::mt19937 random(11);
  RouteStatusWriter writer;
  for (U32 n = 0; n < 30; ++n) writer.routeIs(routeOf(n * n, n));  // some collide
  const int fd = copyOf(writer.fd());
  RouteStatus reader(fd);
  std::vector<std::string> messages;
  reader.corruptionHandlerIs([&](const std::string& message) {
    messages.push_back(message);
    return std::optional<Route>(routeOf(1000, 0));
  });
  for (int round = 0; round < 2000; ++round) {
    const off_t at = slotsAt + static_cast<off_t>(random() % (64 * slotBytes));
    const U32 bit = random() % 8;
    flipBit(fd, at, bit);
    messages.clear();
    std::map<U32, U32> walked;
    reader.forEach([&](const Route& r) { ++walked[r.prefix.address().host() >> 8]; });
    const std::string slot =
        "Quarn::Fib::RouteStatus: slot " + std::to_string((at - slotsAt) / slotBytes) + ": ";
    ASSERT_LE(messages.size(), 1u);
    ASSERT_TRUE(messages.empty() || messages[0].starts_with(slot)) << messages[0];
    ASSERT_GE(walked.size(), 29u + walked.contains(1000));
    ASSERT_EQ(walked.contains(1000), !messages.empty())
        << "the handler's record takes the place of a bad one";
    for (U32 n = 0; n < 30; ++n) {
      if (walked.contains(n * n)) {
        ASSERT_TRUE(reader.route(prefixOf(n * n))) << "a bad slot hides no good record";
      } else {
        ASSERT_THROW(reader.route(prefixOf(n * n)), Quarn::CorruptionException);
      }
    }
    flipBit(fd, at, bit);
  }
  close(fd);
}

TEST(Quarn, AWalkOverRubbishEnds) {
  std::mt19937 random(13);
  RouteStatusWriter writer;
  for (U32 n = 0; n < 30; ++n) writer.routeIs(routeOf(n, n));
  const int fd = copyOf(writer.fd());
  RouteStatus reader(fd);
  U32 reported = 0;
  reader.corruptionHandlerIs([&](const std::string&) { return ++reported, std::nullopt; });
  for (int round = 0; round < 200; ++round) {
    for (off_t at = slotsAt; at < slotsAt + 64 * slotBytes; at += 4) {
      const auto word = static_cast<U32>(random());
      ASSERT_EQ(pwrite(fd, &word, sizeof word, at), 4);
    }
    reported = 0;
    U32 walked = 0;
    reader.forEach([&](const Route&) { ++walked; });
    EXPECT_EQ(walked, 0u);
    EXPECT_EQ(reported, 64u) << "every slot once";
    EXPECT_THROW(reader.route(prefixOf(1)), Quarn::CorruptionException);
  }
  close(fd);
}

TEST(Quarn, AWriterThatDiedInASlotDoesNotStopItsReaders) {
  RouteStatusWriter writer;
  writer.routeIs(routeOf(1, 1));
  const int fd = copyOf(writer.fd());
  RouteStatus reader(fd);
  const U64 slot = reader.iterator().slot();
  const U64 place[] = {reader.instance(), slot, 3};
  const U64 busy = U64{Quarn::crc32c(place, 3)} << 32 | 3;
  ASSERT_EQ(pwrite(fd, &busy, sizeof busy, slotsAt + static_cast<off_t>(slot) * slotBytes), 8);
  try {
    reader.route(prefixOf(1));
    ADD_FAILURE() << "the slot is half written";
  } catch (const Quarn::CorruptionException& e) {
    EXPECT_EQ(e.what(),
              "Quarn::Fib::RouteStatus: slot " + std::to_string(slot) + ": its writer does not leave it");
  }
  close(fd);
}

TEST(Quarn, FecKeepsAViaCountThatItsReaderMustRefuse) {
  ForwardingStatusWriter writer;
  for (U64 id = 1; id < 200; ++id) {
    Fec fec{};
    fec.fecId = id;
    fec.viaCount = 129;
    fec.via[127] = {Lumo::IpAddr("1.2.3.4"), Lumo::IntfId(9)};
    writer.fecIs(fec);
  }
  const ForwardingStatus reader(writer.fd());
  const auto fec = reader.fec(150);
  ASSERT_TRUE(fec);
  EXPECT_EQ(fec->viaCount, 129u);
  EXPECT_EQ(fec->via[127].hop.stringValue() + fec->via[127].intf.stringValue(), "1.2.3.49");
  EXPECT_FALSE(reader.fec(200));
}

}  // namespace
