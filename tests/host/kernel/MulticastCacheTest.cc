#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Error.h"
#include "MulticastCache.h"
#include "Saved.h"
#include "host/Folder.h"

// The cache as a kernel told it (Linux 6.18, smcroute and a routing daemon that never answers), and as `ip`
// saves it.

using namespace host::kernel;

namespace {

std::vector<U8> bytesOf(std::string_view hex) {
  std::vector<U8> bytes;
  for (std::size_t i = 0; i + 1 < hex.size(); i += 2)
    bytes.push_back(static_cast<U8>(std::stoul(std::string(hex.substr(i, 2)), nullptr, 16)));
  return bytes;
}

/// A message without its sequence and port.
std::vector<U8> message(U8 type, std::string_view body) {
  std::vector<U8> bytes(16);
  const auto rest = bytesOf(body);
  bytes.insert(bytes.end(), rest.begin(), rest.end());
  bytes[0] = static_cast<U8>(bytes.size());
  bytes[1] = static_cast<U8>(bytes.size() >> 8);
  bytes[4] = type;
  return bytes;
}

std::string textOf(const MulticastState& state) {
  std::string text;
  for (const MulticastInterface& i : state.interfaces)
    text += fmt::format("{}: {}{} in {}/{} out {}/{}\n", i.table, i.link, i.registers ? " register" : "",
                        i.packetsIn, i.bytesIn, i.packetsOut, i.bytesOut);
  for (const MulticastRoute& r : state.routes)
    text +=
        fmt::format("{}: {} {}{} {} to {} {}/{}/{}\n", r.table, r.source.stringValue(), r.group.stringValue(),
                    r.resolved ? "" : " waits", r.in, fmt::join(r.out, ","), r.packets, r.bytes, r.wrong);
  return text;
}

const std::vector<std::vector<U8>> dump{
    message(16,
            "800000000000000000000000000000004c011a0008000100fd000000080002000000000008000300ffffffff05000400"
            "0100000005000"
            "500010000000500070000000000180106005c0001000800010003000000080002000000000006000300080000000c000"
            "400b3010000"
            "000000000c00050000000000000000000c0006000f000000000000000c00070000000000000000000800080003000000"
            "080009000000"
            "00005c0001000800010005000000080002000100000006000300080000000c00040057000000000000000c000500b301"
            "000000000000"
            "0c00060003000000000000000c0007000f00000000000000080008000500000008000900000000005c00010008000100"
            "070000000800"
            "02000200000006000300040000000c00040000000000000000000c00050022010000000000000c000600000000000000"
            "00000c000700"
            "0a0000000000000008000800070000000800090000000000"),
    message(24,
            "80202000fd1100050000000008000f00fd000000080002000a01000208000100ef010101080003000300000014000900"
            "0800000"
            "10500000008000001070000001c0011000e00000000000000960100000000000004000000000000000c0017000a00000"
            "0000000"
            "00"),
    message(24,
            "80202000fd1100050000000008000f00fd000000080002000a09090908000100ef0303040c0009000800000103000000"
            "1c00110"
            "00000000000000000000000000000000000000000000000000c0017006e00000000000000"),
    message(24, "80202000fd1100052000000008000f00fd000000080002000a01000208000100e8070707")};

TEST(MulticastCache, IsWhatTheKernelTells) {
  MulticastState state;
  for (const auto& bytes : dump) EXPECT_FALSE(parseMulticast(bytes, state));
  EXPECT_TRUE(parseMulticast(message(3, "00000000"), state));
  EXPECT_EQ(textOf(state),
            "253: 3 in 15/435 out 0/0\n"
            "253: 5 in 3/87 out 15/435\n"
            "253: 7 register in 0/0 out 10/290\n"
            "253: 10.1.0.2 239.1.1.1 3 to 5,7 14/406/4\n"
            "253: 10.9.9.9 239.3.3.4 0 to 3 0/0/0\n"
            "253: 10.1.0.2 232.7.7.7 waits 0 to  0/0/0\n");
}

/// Bytes that are cut off or changed are refused or mean something else, and nothing is read beyond them.
TEST(MulticastCache, TakesAnyBytes) {
  const auto take = [](std::vector<U8> bytes) {
    bytes.shrink_to_fit();
    MulticastState state;
    try {
      parseMulticast(bytes, state);
    } catch (const MalformedBytes&) {
    }
  };
  for (const auto& whole : dump) {
    for (std::size_t at = 0; at < whole.size(); ++at) {
      take({whole.data(), whole.data() + at});
      for (const int change : {1, 0x7F, 0xFF}) {
        std::vector<U8> bytes = whole;
        bytes[at] = static_cast<U8>(change);
        take(std::move(bytes));
      }
    }
  }
}

TEST(MulticastCache, IsReadFromWhatWasSaved) {
  const Folder folder;
  folder.write("link.json",
               R"([{"ifindex":3,"ifname":"e1","flags":[]},{"ifindex":5,"ifname":"e2","flags":[]}])");
  folder.write("addr.json", "[]");
  folder.write("route.json", "[]");
  Mirror mirror({}, 0);
  readSaved(folder.path.string(), mirror);
  const auto read = [&](const std::string& text) {
    folder.write("mroute.json", text);
    try {
      const auto reading = SavedMulticastCache(folder.path.string(), mirror).read();
      while (reading->step()) {
      }
      return textOf(reading->state());
    } catch (const host::Error& e) {
      return std::string(e.what()).substr(folder.path.string().size() + 1);
    }
  };
  const std::string route = R"([{"src":"10.1.0.2","dst":"239.1.1.1","state":"resolved")";
  EXPECT_EQ(
      read(
          route +
          R"(,"iif":"e1","multipath":[{"oif":"e2"}],"packets":5000000000,"bytes":7,"wrong_if":4,"table":"default"},
{"src":"::","dst":"ff05::1","state":"resolved","iif":"e9"},
{"src":"10.9.9.9","dst":"239.3.3.4","iif":"unresolved","state":"resolved","table":"10"},
{"src":"10.1.0.2","dst":"232.7.7.7","iif":"unresolved","state":"unresolved"}])"),
      "253: 10.1.0.2 239.1.1.1 3 to 5 5000000000/7/4\n"
      "10: 10.9.9.9 239.3.3.4 0 to  0/0/0\n"
      "253: 10.1.0.2 232.7.7.7 waits 0 to  0/0/0\n");
  const std::string at = "mroute.json: element 1: ";
  EXPECT_EQ(read(route + R"(,"iif":"e9"}])"),
            at + "\"iif\": expected the name of a link in link.json, found \"e9\"");
  EXPECT_EQ(read(route + R"(,"packets":-1}])"), at + "\"packets\": expected a number that counts, found -1");
  EXPECT_EQ(read(R"([{"src":"10.1.0","dst":"239.1.1.1"}])"),
            at + "\"src\": expected an IPv4 address, found \"10.1.0\"");
  std::filesystem::remove(folder.path / "mroute.json");
  try {
    SavedMulticastCache(folder.path.string(), mirror).read()->step();
    FAIL();
  } catch (const host::Error& e) {
    EXPECT_TRUE(std::string(e.what()).ends_with("\"ip -s -j mroute show table all\" saves it"));
  }
}

}  // namespace
