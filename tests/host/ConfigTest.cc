#include <gtest/gtest.h>

#include "ConfigEdit.h"
#include "ConfigReader.h"
#include "ConfigText.h"
#include "NextHopCheck.h"

namespace {

host::Configuration parsed(std::string_view text) {
  return host::parseConfiguration(text, "f");
}

std::string errorsOf(std::string_view text) {
  try {
    parsed(text);
  } catch (const host::ConfigurationError& e) {
    return e.what();
  }
  return "none";
}

TEST(Config, TakesTheLinesThatOperatorsKnow) {
  const auto c = parsed(
      "\xEF\xBB\xBF! comment\r\n"
      "ip mroute 10.1.0.0/16 20.0.0.5\r\n"
      "\n"
      "  ip  mroute\t10.1.0.0/16 eth0 200 # backup\n"
      "ip mroute 10.2.0.0/16 \"a \\\"b\\\\\\x07\" 255\n"
      "ip mroute 0.0.0.0/0 eth0:1\n"
      "ip mroute 0.0.0.0/0 eth1 neighbor 10.0.0.9 7\n"
      "ip multicast export-table 250 for kernel\n"
      "ip multicast rpf-lookup-mode longer-prefix");
  ASSERT_EQ(c.mroutes.size(), 5u);
  EXPECT_EQ(c.placeOf(c.mroutes[1].origin), "f:4");
  EXPECT_EQ(c.placeOf(7), "the command line");
  EXPECT_EQ(std::get<std::string>(c.mroutes[2].rpf), "a \"b\\\a");
  EXPECT_EQ(host::textOf(c),
            "ip multicast rpf-lookup-mode longer-prefix\nip multicast export-table 250 for kernel\n"
            "ip mroute 10.1.0.0/16 20.0.0.5\nip mroute 10.1.0.0/16 eth0 200\n"
            "ip mroute 10.2.0.0/16 \"a \\\"b\\\\\\x07\" 255\nip mroute 0.0.0.0/0 \"eth0:1\"\n"
            "ip mroute 0.0.0.0/0 eth1 neighbor 10.0.0.9 7\n");
  using Commands = std::vector<std::string>;
  const auto is = [](const char* neighbor) {
    return std::string("ip mroute 0.0.0.0/0 eth1 neighbor ") + neighbor + " 7";
  };
  EXPECT_THROW(host::edited(c, Commands{"no " + is("10.0.0.8")}), host::ConfigurationError);
  const auto other =
      host::edited(c, Commands{"no " + is("10.0.0.9"), is("10.0.0.8"), "no ip multicast export-table"});
  EXPECT_FALSE(other.exportTable);
  ASSERT_EQ(host::differenceOf(c, other).changed.size(), 1u);
  EXPECT_EQ(host::textOf(host::differenceOf(c, other).changed[0].after), is("10.0.0.8"));
}

TEST(Config, NamesLineColumnAndWhatWasExpected) {
  const std::string net = "ip mroute 10.0.0.0/8 ";
  const struct {
    std::string text;
    const char* error;
  } cases[] = {
      {"ip route 1.0.0.0/8 eth0", "1:4: expected \"mroute\" or \"multicast\", found \"route\""},
      {"ipv6 mroute ::/0 eth0", "1:1: IPv6 is not supported yet"},
      {"no " + net + "eth0", "1:1: expected \"ip\" or \"include\", found \"no\""},
      {"ip mroute", "1:10: expected a prefix A.B.C.D/LENGTH"},
      {net + "! eth0", "1:28: expected a next hop address or an interface"},
      {"ip mroute 10.0.0.1/8 e",
       "1:11: expected a prefix A.B.C.D/LENGTH, found \"10.0.0.1/8\": host bits are set, the network is "
       "10.0.0.0/8"},
      {"ip mroute 1.2.3.0/024 e",
       "1:11: expected a prefix A.B.C.D/LENGTH, found \"1.2.3.0/024\": the length has a leading zero"},
      {"ip mroute 2001:db8::/32 e", "1:11: IPv6 is not supported yet: \"2001:db8::/32\""},
      {net + "fe80::1%eth0", "1:22: IPv6 is not supported yet: \"fe80::1%eth0\""},
      {net + "eth0 0", "1:27: expected a preference from 1 to 255, found \"0\""},
      {net + "eth0 1 2", "1:29: expected the end of the line, found \"2\""},
      {net + "\"eth0", "1:22: expected a closing quote"},
      {net + "\"a\\q\"", "1:24: expected \\\", \\\\ or \\xHH (not \\x00)"},
      {net + "\"a\"b", "1:25: expected a blank after the quote"},
      {net + "a\x01", "1:23: unexpected control byte \\x01"},
      {net + "sixteen-bytes-no",
       "1:22: expected an interface name of 1 to 15 bytes without a slash, found \"sixteen-bytes-no\""},
      {"ip mroute 232.1.0.0/16 e",
       "1:11: expected the prefix of sources, found \"232.1.0.0/16\": these are group addresses, and a "
       "source has a unicast address"},
      {"ip mroute 127.0.0.0/8 e",
       "1:11: expected the prefix of sources, found \"127.0.0.0/8\": these are loopback addresses, which "
       "stay within a host"},
      {net + "127.0.0.1",
       "1:22: expected the address of a neighbour, found \"127.0.0.1\": it is a loopback address"},
      {"ip mroute 1.0.0.0/8 e 1\nip mroute 1.0.0.0/8 e", "2:1: the same route stands in f:1"},
      {"ip multicast rpf-lookup-mode urib-only\nip multicast rpf-lookup-mode urib-only",
       "2:1: the mode stands in f:1 already"},
      {net + "10.0.0.5 neighbor 10.0.0.6",
       "1:31: a neighbor is named for an interface only: a next hop is one"},
      {"ip multicast export-table 252", "1:1: FRRouting imports tables 1 to 251, not 252"},
      {"ip multicast export-table 9\nip multicast export-table 9",
       "2:1: the exported table stands in f:1 already"},
      {"ip multicast rpf-lookup-mode urib",
       "1:30: expected \"mrib-only\", \"mrib-then-urib\", \"urib-only\", \"longer-prefix\" or "
       "\"lower-distance\", found \"urib\""},
  };
  for (const auto& c : cases) {
    const std::string error = errorsOf(c.text);
    EXPECT_EQ(error, error == "none" ? c.error : std::string("f:") + c.error) << c.text;
  }
  EXPECT_EQ(errorsOf(std::string("ip\n! a\0", 7)),
            "f:2:4: a NUL byte: this is no text, and none of it is read");
}

TEST(Config, PrintsTwentyErrorsAndReadsNoFurtherThanTenThousand) {
  std::string text(70, 'x');
  text += '\n';
  for (int i = 0; i < 16; ++i) text += text;
  try {
    parsed(text);
    FAIL();
  } catch (const host::ConfigurationError& e) {
    const std::string what = e.what();
    const std::string last =
        "f:20:1: expected \"ip\" or \"include\", found \"" + std::string(64, 'x') + "...\"\n";
    EXPECT_NE(what.find(last + "and 9980 more errors"), what.npos) << what;
    EXPECT_EQ(e.errors().size(), host::mostConfigErrors);
  }
}

TEST(Config, NextHopsThatAreNoNeighboursAreNamedWithTheReason) {
  const auto addr = [](const char* text) { return Lumo::IpAddr(text); };
  const host::OwnSubnet subnets[] = {{addr("10.0.1.1"), 24, "e\"0"},
                                     {addr("10.0.0.1"), 8, "eth8"},
                                     {addr("10.0.1.254"), 31, "tun0"},
                                     {addr("10.9.9.9"), 32, "lo"}};
  const auto c = parsed(
      "ip mroute 20.0.0.0/8 10.0.1.1\nip mroute 20.0.0.0/8 10.0.1.0\nip mroute 20.0.0.0/8 10.255.255.255\n"
      "ip mroute 20.0.0.0/8 10.0.1.255\nip mroute 20.0.0.0/8 10.9.9.9 5\nip mroute 20.0.0.0/8 10.0.1.7\n"
      "ip mroute 20.0.0.0/8 eth8\nip mroute 20.0.0.0/8 10.0.1.254\n");
  EXPECT_STREQ(
      host::ConfigurationError(host::impossibleNextHops(c, subnets)).what(),
      "f:1: \"ip mroute 20.0.0.0/8 10.0.1.1\": the next hop 10.0.1.1 is this router's own address on e\\\"0\n"
      "f:2: \"ip mroute 20.0.0.0/8 10.0.1.0\": the next hop 10.0.1.0 is the network address of 10.0.1.0/24 "
      "on e\\\"0\n"
      "f:3: \"ip mroute 20.0.0.0/8 10.255.255.255\": the next hop 10.255.255.255 is the broadcast address of "
      "10.0.0.0/8 on eth8\n"
      "f:5: \"ip mroute 20.0.0.0/8 10.9.9.9 5\": the next hop 10.9.9.9 is this router's own address on lo\n"
      "f:8: \"ip mroute 20.0.0.0/8 10.0.1.254\": the next hop 10.0.1.254 is this router's own address on "
      "tun0");
}

}  // namespace
