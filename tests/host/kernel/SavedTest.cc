#include <gtest/gtest.h>

#include "Describe.h"
#include "Error.h"
#include "Names.h"
#include "Saved.h"
#include "host/Folder.h"

using namespace host::kernel;

namespace {

class SavedTest : public testing::Test {
 protected:
  SavedTest() {
    folder.write("link.json",
                 R"([{"ifindex":1,"ifname":"lo","flags":["LOOPBACK","UP","LOWER_UP"],"operstate":"UNKNOWN"},
{"ifindex":2,"ifname":"a","flags":["UP","LOWER_UP"],"operstate":"UP","master":"br","altnames":["other"]},
{"ifindex":3,"ifname":"br","flags":["NO-CARRIER","UP"],"operstate":"DOWN"}])");
    folder.write("addr.json",
                 R"([{},{"ifindex":2,"addr_info":[{"family":"inet","local":"10.0.0.1","prefixlen":24}]}])");
    folder.write("route.json", R"([{"dst":"default","gateway":"10.0.0.2","dev":"a","flags":[]}])");
  }

  /// What is wrong with the files, without their folder; or the answers.
  std::string read(U32 table = 254) {
    Mirror::Settings settings;
    settings.table = table;
    Mirror mirror(settings, 0);
    try {
      readSaved(folder.path.string(), mirror);
    } catch (const host::Error& e) {
      return std::string(e.what()).substr(folder.path.string().size() + 1);
    }
    mirror.takeChanges();
    std::string all;
    for (const auto& line : describe(mirror)) {
      if (line.starts_with("answer") && line.find(" local ") == line.npos) all += line.substr(7) + ';';
    }
    return all;
  }

  const Folder folder;
};

TEST_F(SavedTest, NamesFilePlaceAndWhatWasExpected) {
  const std::tuple<const char*, const char*, std::string> cases[] = {
      {"link.json", R"([{"ifindex":1,"ifname":"x","flags":[]},{"ifindex":1,"ifname":"y","flags":[]}])",
       "element 2: \"ifindex\": expected an index of its own, found 1"},
      {"addr.json", R"([{"ifindex":9,"addr_info":[]}])",
       "element 1: \"ifindex\": expected the index of a link in link.json, found 9"},
      {"addr.json", R"([{"ifindex":2,"addr_info":[{"family":"inet","local":"::1","prefixlen":3}]}])",
       "element 1: \"addr_info\" 1: \"local\": expected an address of its family, found \"::1\""},
      {"route.json", R"([{"dst":"1.0.0.0/8","dev":"a","metric":4294967296}])",
       "element 1: \"metric\": expected a number from 0 to 4294967295, found 4294967296"},
      {"route.json", R"([{"dst":"1.0.0.0/8","nexthops":[{"dev":"a"},{"dev":"y"}]}])",
       "element 1: \"nexthops\" 2: \"dev\": expected the name of a link in link.json, found \"y\""},
      {"route.json", R"([{"dst":"1.0.0.0/8","dev":"a","gateway":"host\u001b"}])",
       "element 1: \"gateway\": expected an address, found \"host\\x1B\""},
      {"route.json", R"([{"dst":"1.0.0.0/8","nhid":4}])",
       "element 1: \"nhid\": expected nexthop.json beside it (ip -j nexthop), found 4"},
      {"route.json", R"([{"dst":"1.0.0.0/8","dev":"a","dev":"br"}])", "element 1: \"dev\" is there twice"},
      {"route.json", R"([{"dst":"1.0.0.0/8","dev":"a","flags":[[[[[[[[[[[[[[[[[[)",
       "element 1: nested too deeply"},
      {"route.json", "[{\"dst\":\"\xff\"}]", "byte 10: expected JSON"},
      {"nexthop.json", R"([{"id":1}])", "element 1: expected \"dev\", \"group\" or \"blackhole\""},
  };
  for (const auto& [file, text, said] : cases)
    folder.with(file, text, [&, f = file, &s = said] { EXPECT_EQ(read(), f + (": " + s)); });
  EXPECT_EQ(read(), "0.0.0.0/0 gateway 10.0.0.2@2 proto=3 metric=0;");
  std::filesystem::remove(folder.path / "addr.json");
  EXPECT_EQ(read(), "addr.json: can't open it");
}

TEST_F(SavedTest, ReadsNumbersForNamesTablesAndBothFamilies) {
  folder.write("route.json", R"([{"type":"6","dst":"1.0.0.0/8","flags":[]},
{"dst":"2.0.0.0/8","dev":"a","protocol":"2","scope":"253","metric":7,"flags":[]},
{"dst":"3.0.0.0/8","dev":"a","table":"100","flags":[]},
{"dst":"4.0.0.0/8","dev":"a","tos":"0x10","flags":[]},
{"dst":"5.0.0.0/8","dev":"a","protocol":"of-another-machine","flags":["linkdown"]},
{"dst":"6.0.0.0/8","flags":[],"nexthops":[{"gateway":"1.1.1.1","dev":"a","flags":["dead","linkdown"]},
 {"via":{"family":"inet6","host":"fe80::1"},"dev":"br","weight":1,"flags":["onlink"]}]},
{"dst":"7.0.0.0/8","nhid":3,"gateway":"1.1.1.1","dev":"a","flags":[]},
{"dst":"default","gateway":"fe80::1","dev":"a","pref":"medium","flags":[]}])");
  folder.write("route6.json", R"([{"dst":"2001:db8::/32","dev":"a","flags":[]}])");
  EXPECT_EQ(
      read(),
      "1.0.0.0/8 blackhole proto=3 metric=0;2.0.0.0/8 attached @2 proto=2 metric=7;"
      "2001:db8::/32 attached @2 proto=3 metric=0;5.0.0.0/8 attached @2 proto=0 metric=0;"
      "6.0.0.0/8 gateway fe80::1@3 onlink proto=3 metric=0;7.0.0.0/8 gateway 1.1.1.1@2 proto=3 metric=0;"
      "::/0 gateway fe80::1@2 proto=3 metric=0;");
  folder.write("route.json", R"([{"dst":"3.0.0.0/8","dev":"a","table":"100","flags":[]},
{"dst":"4.0.0.0/8","dev":"a","table":"main","flags":[]}])");
  std::filesystem::remove(folder.path / "route6.json");
  EXPECT_EQ(read(100), "3.0.0.0/8 attached @2 proto=3 metric=0;");
}

TEST(Names, AreTakenAsTheyAreGiven) {
  EXPECT_EQ(tableNumber("main"), 254u);
  EXPECT_EQ(tableNumber("0x64"), 100u);
  EXPECT_FALSE(tableNumber("no such table"));
  EXPECT_FALSE(tableNumber("4294967296"));
  EXPECT_FALSE(protocolNumber("256"));
  for (unsigned p = 0; p < 256; ++p) EXPECT_EQ(protocolNumber(protocolName(static_cast<U8>(p))), p);
}

}  // namespace
