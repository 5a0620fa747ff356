#include <gtest/gtest.h>

#include "Lumo/IpGenPrefix.h"
#include "Refusal.h"
#include "Routing/Fib/Via.h"
#include "Routing/Multicast/Rib/Rpf.h"

namespace {

using Lumo::IpAddr;
using Lumo::IpGenPrefix;
using Lumo::Prefix;

/// How a text is taken for a prefix, or what is wrong with it.
std::string read(const char* text) {
  std::string taken;
  return refusal([&] { taken = IpGenPrefix(text).stringValue(); }) + taken;
}

TEST(Values, PrefixTextIsReadStrictlyAndSaysWhatIsWrong) {
  EXPECT_EQ(read("10.1.2.0/24"), "10.1.2.0/24");
  EXPECT_EQ(read("2001:DB8::/32"), "2001:db8::/32");
  EXPECT_EQ(read("10.1.2.3/24"), "\"10.1.2.3/24\" has host bits set: the network is 10.1.2.0/24");
  EXPECT_EQ(read("10.1.2.0/33"), "\"10.1.2.0/33\" is not a prefix: the length is not 0 to 32");
  EXPECT_EQ(read("10.1.2.0"), "\"10.1.2.0\" is not a prefix: it has no /LENGTH");
  for (const char* bad :
       {"10.1.2/24", "10.1.2.256/32", "10.01.2.0/24", "10.1.2.0/+8", "10.1.2.0/08", " 10.0.0.0/8",
        "10.0.0.0/8 ", "10.0.0.0/", "/8", "::1/127", "::/129", "10.0.0.0.0/8"}) {
    EXPECT_EQ(read(bad).find(bad), 1u) << read(bad);
  }
}

TEST(Values, OrderIsFamilyAddressLength) {
  const std::vector<IpGenPrefix> ascending{IpGenPrefix(""),           IpGenPrefix("0.0.0.0/0"),
                                           IpGenPrefix("0.0.0.0/1"),  IpGenPrefix("1.0.0.0/8"),
                                           IpGenPrefix("1.0.0.0/24"), IpGenPrefix("200.0.0.0/8"),
                                           IpGenPrefix("::/0"),       IpGenPrefix("1::/16")};
  for (std::size_t i = 0; i + 1 < ascending.size(); ++i) {
    EXPECT_LT(ascending[i], ascending[i + 1]);
    EXPECT_FALSE(ascending[i + 1] < ascending[i]);
  }
}

TEST(Values, ViaWithoutInterfaceIsEquivalentToEveryVia) {
  const auto low = Zan::create<Interface::IntfStatus>(Lumo::IntfId(1), "a");
  const auto high = Zan::create<Interface::IntfStatus>(Lumo::IntfId(2), "b");
  const Routing::Fib::Via none{IpAddr("9.9.9.9"), nullptr}, a{IpAddr("2.0.0.0"), low},
      b{IpAddr("1.0.0.0"), high}, a2{IpAddr("3.0.0.0"), low};
  EXPECT_FALSE(none < a || a < none);
  EXPECT_TRUE(a < b && a < a2);
  EXPECT_FALSE(a == a2);
  EXPECT_THROW(Routing::Fib::ViaIndex(128), Zan::RangeException);
  EXPECT_EQ(Routing::Fib::ViaIndex(127).value(), 127u);
}

}  // namespace
