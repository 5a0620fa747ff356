#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

#include <map>
#include <random>

#include "Quarn/Fib/ForwardingStatus.h"
#include "Quarn/Fib/RouteStatus.h"

namespace {

using Quarn::Fib::ForwardingStatus;
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

std::string refusal(int fd) {
  try {
    const RouteStatus reader(fd);
  } catch (const Zan::Exception& e) {
    return e.what();
  }
  return "attached";
}

TEST(Quarn, AttachRefusesWhatIsNoSealedTableOfItsKind) {
  const Quarn::Fib::ForwardingStatusWriter fecs;
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

TEST(Quarn, ReaderSeesOnlyWholeRecordsWhileAnotherProcessWrites) {
  RouteStatusWriter writer(1024);
  constexpr U32 routes = 300;
  for (U32 n = 0; n < routes; ++n) writer.routeIs(routeOf(n, 0));
  const RouteStatus reader(writer.fd());
  const pid_t child = fork();
  ASSERT_GE(child, 0);
  if (child == 0) {
    for (U32 g = 1; g < 2000; ++g) {
      for (U32 n = 0; n < routes; ++n) writer.routeIs(routeOf(n, g));
    }
    _exit(0);
  }
  int status = 0;
  U64 seen = 0;
  do {
    reader.forEach([&](const Route& r) {
      ++seen;
      ASSERT_TRUE(consistent(r));
    });
  } while (waitpid(child, &status, WNOHANG) == 0);
  EXPECT_EQ(status, 0);
  EXPECT_GT(seen, 0u);
  EXPECT_EQ(reader.route(prefixOf(5))->preference, static_cast<U8>(1999));
}

TEST(Quarn, FlippedBitsAreReportedAndTheWalkGoesOn) {
  std::mt19937 random(11);
  for (int round = 0; round < 300; ++round) {
    RouteStatusWriter writer;
    for (U32 n = 0; n < 25; ++n) writer.routeIs(routeOf(n, n));
    const off_t size = lseek(writer.fd(), 0, SEEK_END);
    // A copy, since the seal keeps everybody but the writer from the original.
    std::vector<char> bytes(static_cast<std::size_t>(size));
    ASSERT_EQ(pread(writer.fd(), bytes.data(), bytes.size(), 0), size);
    const auto at = 4096 + random() % (bytes.size() - 4096);
    bytes[at] = static_cast<char>(bytes[at] ^ 1 << random() % 8);
    const int fd = memfd_create("copy", MFD_ALLOW_SEALING);
    ASSERT_EQ(write(fd, bytes.data(), bytes.size()), size);
    ASSERT_EQ(fcntl(fd, F_ADD_SEALS, F_SEAL_SHRINK | F_SEAL_GROW), 0);
    RouteStatus reader(fd);
    close(fd);
    std::vector<std::string> messages;
    reader.corruptionHandlerIs([&](const std::string& message) {
      messages.push_back(message);
      return std::optional<Route>(routeOf(999, 0));
    });
    U32 walked = 0;
    bool replaced = false;
    reader.forEach([&](const Route& r) {
      ++walked;
      replaced |= r.prefix == prefixOf(999);
      EXPECT_TRUE(consistent(r));
    });
    const std::string slot = "Quarn::Fib::RouteStatus: slot " + std::to_string((at - 4096) / 32) + ": ";
    ASSERT_LE(messages.size(), 1u);
    EXPECT_EQ(replaced, !messages.empty());
    EXPECT_TRUE(messages.empty() || messages[0].starts_with(slot));
    EXPECT_GE(walked, 25u) << "every good record still comes";
  }
}

TEST(Quarn, FecKeepsAViaCountThatItsReaderMustRefuse) {
  Quarn::Fib::ForwardingStatusWriter writer;
  for (U64 id = 1; id < 200; ++id) {
    Quarn::Fib::Fec fec{};
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
