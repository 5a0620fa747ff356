#include <algorithm>
#include <array>
#include <chrono>
#include <map>
#include <random>
#include <set>

#include "QuarnRecords.h"

namespace {

using namespace QuarnRecords;

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

TEST(Quarn, ReaderFollowsChangesAndGrowthAndWalksTheSlotsInOrder) {
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
  std::vector<U64> slots;
  for (auto i = reader.iterator(); i; ++i) {
    EXPECT_TRUE(consistent(*i) && reference.contains((*i).prefix.address().host() >> 8));
    slots.push_back(i.slot());
  }
  EXPECT_EQ(slots.size(), reference.size());
  EXPECT_TRUE(std::is_sorted(slots.begin(), slots.end()));
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
  RouteStatusWriter good;
  good.routeIs(routeOf(1, 1));
  RouteStatus reader(good.fd());
  EXPECT_THROW(reader.attach(fecs.fd()), Zan::Exception);
  EXPECT_TRUE(reader.route(prefixOf(1))) << "the reader is where it was";
  const int plain = memfd_create("plain", MFD_ALLOW_SEALING);
  ASSERT_EQ(ftruncate(plain, 8192), 0);
  EXPECT_NE(refusal(plain).find("not sealed"), std::string::npos);
  ASSERT_EQ(fcntl(plain, F_ADD_SEALS, F_SEAL_SHRINK), 0);
  EXPECT_NE(refusal(plain).find("no table segment"), std::string::npos);
  close(plain);
  EXPECT_NE(refusal(-1).find("dup"), std::string::npos);
}
// ---- Corruption ----

/// Turns a bit somewhere in a table that has `records`, numbered from 0, and back again: the table is
/// refused, or the record's slot is named and `substitute` takes its place, or nothing is amiss. The other
/// records still come.
template <class Traits, class Reader, class Find>
void turnBits(int original, U32 records, const typename Traits::Record& substitute, Find find) {
  std::mt19937_64 random(11);
  const Copy fd(original);
  const auto bits = static_cast<U64>(lseek(fd, 0, SEEK_END)) * 8;
  const off_t slotBytes = 8 * Traits::layout.slotWords();
  const auto round = [&](const Reader& reader, off_t at, const std::vector<std::string>& faults) {
    std::set<U64> walked;
    reader.forEach([&](const auto& r) { EXPECT_TRUE(consistent(r) && walked.insert(r.fecId).second); });
    const std::string slot = ": slot " + std::to_string((at - slotsAt) / slotBytes) + ": ";
    ASSERT_LE(faults.size(), 1u);
    ASSERT_TRUE(faults.empty() || faults[0].find(slot) != std::string::npos) << faults[0];
    ASSERT_EQ(walked.erase(substitute.fecId), faults.size()) << "it takes the place of a bad one";
    ASSERT_GE(walked.size() + faults.size(), records);
    for (U32 n = 0; n < records; ++n) {
      if (walked.contains(n)) {
        ASSERT_EQ(find(reader, n)->fecId, n) << "a bad slot hides no good record";
      } else {
        ASSERT_THROW(find(reader, n), Quarn::CorruptionException);
      }
    }
  };
  for (U64 n = valueOf("MRIB_FLIPS", 4000); n > 0 && !testing::Test::HasFailure(); --n) {
    const U64 bit = random() % bits;
    const auto at = static_cast<off_t>(bit / 8);
    flipBit(fd, at, bit % 8);
    try {
      Reader reader(fd);
      std::vector<std::string> faults;
      reader.corruptionHandlerIs(
          [&](const std::string& m) { return faults.push_back(m), std::optional(substitute); });
      round(reader, at, faults);
    } catch (const Zan::Exception&) {
      EXPECT_LT(at, 64) << "only a bad header is a reason to refuse the table";
    }
    flipBit(fd, at, bit % 8);
  }
}

/// MRIB_FLIPS=1000000 turns more of them.
TEST(Quarn, ATurnedBitIsNoticedOrHarmlessAndTheOtherRecordsStillCome) {
  RouteStatusWriter routes;
  for (U32 n = 0; n < 34; ++n) routes.routeIs(routeOf(n, 0));
  for (U32 n = 30; n < 34; ++n) routes.routeDel(prefixOf(n));  // some collide, some are no more
  turnBits<Quarn::Fib::RouteTraits, RouteStatus>(
      routes.fd(), 30, routeOf(1000, 0), [](const RouteStatus& t, U32 n) { return t.route(prefixOf(n)); });
  ForwardingStatusWriter fecs;
  for (U32 id = 0; id < 9; ++id) fecs.fecIs(fecOf(id, 0));
  turnBits<Quarn::Fib::FecTraits, ForwardingStatus>(
      fecs.fd(), 9, fecOf(1000, 0), [](const ForwardingStatus& t, U32 id) { return t.fec(id); });
}

TEST(Quarn, ARecordThatIsBeingWrittenIsTakenFromTheJournal) {
  RouteStatusWriter writer;
  writer.routeIs(routeOf(1, 1));
  const Copy fd(writer.fd());
  const RouteStatus reader(fd);
  const U64 slot = reader.iterator().slot();
  wordIs(fd, slotAt(slot), busyControl(reader.instance(), slot, 1));
  wordIs(fd, slotAt(slot) + 16, 0x1234);  // what the writer has not got to yet
  const auto found = reader.route(prefixOf(1));
  EXPECT_TRUE(found && consistent(*found));
  flipBit(fd, slotAt(reader.slotCount()) + 16, 3);
  EXPECT_THROW(reader.route(prefixOf(1)), Quarn::CorruptionException) << "the journal is checked as well";
}

TEST(Quarn, SlotsThatWereLeftHalfWrittenAreReportedAtOnce) {
  RouteStatusWriter writer;
  for (U32 n = 0; n < 32; ++n) writer.routeIs(routeOf(n, 1));
  const Copy fd(writer.fd());
  const RouteStatus reader(fd);
  for (U64 slot = 0; slot < reader.slotCount(); ++slot) {
    wordIs(fd, slotAt(slot), busyControl(reader.instance(), slot, 3));  // the journal is of another write
  }
  const auto begin = std::chrono::steady_clock::now();
  try {
    reader.route(prefixOf(1));
    ADD_FAILURE() << "nothing can be read";
  } catch (const Quarn::CorruptionException& e) {
    EXPECT_TRUE(std::string(e.what()).ends_with(": its writer left it half written")) << e.what();
  }
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::milliseconds(50));
  EXPECT_THROW(reader.route(prefixOf(31)), Quarn::CorruptionException) << "its journal is of an older write";
}

TEST(Quarn, ASegmentThatClaimsMoreSlotsThanItHasIsRefused) {
  const RouteStatusWriter good;
  for (const U64 count : {U64{128}, U64{1} << 40, U64{1} << 59, (U64{1} << 59) + 1, U64{1} << 63, ~U64{0}}) {
    const Copy fd(good.fd());
    U64 header[8];
    ASSERT_EQ(pread(fd, header, sizeof header, 0), 64);
    header[4] = count;
    header[7] = Quarn::crc32c(header, 7);
    ASSERT_EQ(pwrite(fd, header, sizeof header, 0), 64);
    EXPECT_NE(refusal(fd).find(std::has_single_bit(count) ? "shorter than it claims" : "no power of two"),
              std::string::npos);
  }
}

}  // namespace
