#include <gtest/gtest.h>

#include "ConfigCheck.h"
#include "Escape.h"

namespace {

using host::parseConfig;

std::string errorsOf(std::string_view text) {
  std::string all;
  for (const auto& e : parseConfig(text).errors) {
    all += std::to_string(e.line) + ":" + std::to_string(e.column) + ": " + e.text + ";";
  }
  return all;
}

TEST(Config, TakesTheLinesThatOperatorsKnow) {
  const auto parsed = parseConfig(
      "! comment\n"
      "ip mroute 10.1.0.0/16 20.0.0.5\r\n"
      "\n"
      "  ip  mroute\t10.1.0.0/16 eth0 200 # backup\n"
      "ip mroute 10.2.0.0/16 \"a \\\"b\\\\\\x07\" 255");
  EXPECT_TRUE(parsed.errors.empty());
  ASSERT_EQ(parsed.lines.size(), 3u);
  EXPECT_EQ(parsed.lines[0].preference, 1);
  EXPECT_EQ(std::get<Lumo::IpAddr>(parsed.lines[0].rpf).stringValue(), "20.0.0.5");
  EXPECT_EQ(std::get<std::string>(parsed.lines[1].rpf), "eth0");
  EXPECT_EQ(parsed.lines[1].line, 4u);
  EXPECT_EQ(std::get<std::string>(parsed.lines[2].rpf), "a \"b\\\a");
  EXPECT_EQ(parsed.lines[2].rpfText(), "a \\\"b\\\\\\x07");
}

TEST(Config, NamesLineColumnAndWhatWasExpected) {
  const std::pair<const char*, const char*> cases[] = {
      {"ip route 1.0.0.0/8 eth0", "1:4: expected \"ip mroute\", found \"route\";"},
      {"ip mroute", "1:10: expected a prefix A.B.C.D/LENGTH;"},
      {"ip mroute 10.0.0.0/8", "1:21: expected a next hop address or an interface;"},
      {"ip mroute 10.0.0.1/8 eth0",
       "1:11: expected a prefix A.B.C.D/LENGTH, found \"10.0.0.1/8\": host bits are set, the network is "
       "10.0.0.0/8;"},
      {"\nip mroute 10.0.0.0/33 eth0",
       "2:11: expected a prefix A.B.C.D/LENGTH, found \"10.0.0.0/33\": the length is not 0 to 32;"},
      {"ip mroute 10.0.0.0 eth0",
       "1:11: expected a prefix A.B.C.D/LENGTH, found \"10.0.0.0\": it has no /LENGTH;"},
      {"ip mroute 10.0.0.0/8 1.2.3.400",
       "1:22: expected a next hop address or an interface, found \"1.2.3.400\";"},
      {"ip mroute 10.0.0.0/8 eth0 0", "1:27: expected a preference from 1 to 255, found \"0\";"},
      {"ip mroute 10.0.0.0/8 eth0 256", "1:27: expected a preference from 1 to 255, found \"256\";"},
      {"ip mroute 10.0.0.0/8 eth0 1 2", "1:29: expected the end of the line, found \"2\";"},
      {"ip mroute 10.0.0.0/8 \"eth0", "1:22: expected a closing quote;"},
      {"ip mroute 10.0.0.0/8 \"a\\q\"", "1:24: expected \\\", \\\\ or \\xHH (not \\x00);"},
      {"ip mroute 10.0.0.0/8 a\x01", "1:23: unexpected control byte \\x01;"},
      {"ip mroute 10.0.0.0/8 sixteen-bytes-no",
       "1:22: expected an interface name of 1 to 15 bytes without a slash, "
       "found \"sixteen-bytes-no\";"},
      {"ip mroute 232.1.0.0/16 eth0",
       "1:11: expected the prefix of sources, found the group range 232.1.0.0/16: a "
       "source is a unicast address;"},
      {"ip mroute 1.0.0.0/8 e 1\nip mroute 1.0.0.0/8 e", "2:1: the same route stands in line 1;"},
      {"x\nip mroute 1.0.0.0/8 e\ny",
       "1:1: expected \"ip mroute\", found \"x\";3:1: expected \"ip mroute\", found \"y\";"},
  };
  for (const auto& [text, errors] : cases) EXPECT_EQ(errorsOf(text), errors) << text;
}

TEST(Config, WarnsOfWhatIsTakenAllTheSame) {
  host::KernelState kernel;
  kernel.links = {{2, "e\"0", true}};
  kernel.routes = {{Lumo::Prefix("10.0.0.0/24"), true, 0, "kernel", 0, {{Lumo::IpAddr(), 2}}}};
  const auto warnings = warningsFor(parseConfig("ip mroute 10.0.0.0/24 eth9").lines, kernel);
  ASSERT_EQ(warnings.size(), 2u);
  EXPECT_NE(warnings[0].find("10.0.0.0/24 is directly connected on e\\\"0"), std::string::npos);
  EXPECT_EQ(warnings[1], "line 1: interface eth9 does not exist: kept, not resolved");
}

TEST(Escape, LeavesNothingThatATerminalOrJsonCouldTakeForACommand) {
  EXPECT_EQ(host::escaped("a\"b\\c\x1b[0m\n\x7f\xff\xc3\xa9\xe2\x82\xac\xc0\x80\xed\xa0\x80\xc2\x9b"),
            "a\\\"b\\\\c\\x1B[0m\\x0A\\x7F\\xFF\xc3\xa9\xe2\x82\xac\\xC0\\x80\\xED\\xA0\\x80\\xC2\\x9B");
}

}  // namespace
