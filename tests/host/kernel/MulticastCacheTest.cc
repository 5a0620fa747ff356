#include <fmt/format.h>
#include <gtest/gtest.h>

#include "Error.h"
#include "MulticastCache.h"
#include "Saved.h"
#include "host/Folder.h"

// The cache as `ip` saves it; as the kernel tells it, with real packets: e2e/flows.py.

using namespace host::kernel;

namespace {

std::string textOf(const MulticastState& state) {
  std::string text;
  for (const MulticastRoute& r : state.routes)
    text +=
        fmt::format("{}: {} {}{} {} to {} {}/{}/{}\n", r.table, r.source.stringValue(), r.group.stringValue(),
                    r.resolved ? "" : " waits", r.in, fmt::join(r.out, ","), r.packets, r.bytes, r.wrong);
  return text;
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
