#include <gtest/gtest.h>

#include "Lumo/IpGenPrefix.h"
#include "Refusal.h"
#include "Routing/ValueTraits.h"

namespace {

using Lumo::IpAddr;
using Lumo::IpGenPrefix;
using Lumo::Prefix;
using Routing::Multicast::Rib::Rpf;

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

/// Texts that a type takes and says again, as a value and on a stream, and others that it refuses.
template <class T>
void expectTexts(std::initializer_list<std::string> good, std::initializer_list<std::string> bad) {
  for (const std::string& text : good) {
    const T value = Zan::Value::of(text).as<T>();
    EXPECT_EQ(Zan::Value::of(value).text(), text);
    std::ostringstream out;
    if constexpr (std::is_class_v<T>) out << value;
    EXPECT_EQ(out.str(), std::is_class_v<T> ? text : "");
  }
  for (const std::string& text : bad) {
    EXPECT_THROW(Zan::Value::of(text).as<T>(), Zan::TypeException) << Zan::ValueTraits<T>::name << text;
  }
}

TEST(Values, AreReadFromTheirOwnTextsAndNoOthers) {
  expectTexts<bool>({"true", "false"}, {"", "1"});
  expectTexts<U8>({"0", "255"}, {"256", "-1", "1 ", "x"});
  expectTexts<double>({"0.500000"}, {"x", "1e9999", "0.5s"});
  expectTexts<Zan::Name>({"", "any"}, {});
  expectTexts<IpAddr>({"10.1.2.3"}, {"", "10.1.2", "::1"});
  expectTexts<Prefix>({"10.0.0.0/8"}, {"10.0.0.0", "10.0.0.1/8", "10.0.0.0/33", "x/8"});
  expectTexts<Lumo::Ip6Prefix>({"1::/16"}, {"1::", "1::1/16", "1::/129", "x/8"});
  expectTexts<IpGenPrefix>({"", "10.0.0.0/8", "1::/16"}, {"10.0.0.0"});
  expectTexts<Lumo::AddressFamily>({"unknown", "ipv4", "ipv6"}, {"ipv5"});
  expectTexts<Routing::Fib::RouteType>(
      {"unknown", "drop", "receive", "ipStatic", "multicastStatic", "igp", "egp", "connected"}, {"static"});
  expectTexts<Rpf>({"intf 7", "addr 10.1.2.3", "addr ::1"}, {"intf x", "addr ", "addr x", "unknown"});
  EXPECT_THROW(Prefix(IpAddr(), 33), Zan::RangeException);
}

TEST(Values, OrderIsFamilyAddressLength) {
  const std::vector<IpGenPrefix> ascending{
      IpGenPrefix(""),          IpGenPrefix("0.0.0.0/0"),  IpGenPrefix("0.0.0.0/1"),
      IpGenPrefix("1.0.0.0/8"), IpGenPrefix("1.0.0.0/24"), IpGenPrefix("200.0.0.0/8"),
      IpGenPrefix("::/0"),      IpGenPrefix("1::/16"),     IpGenPrefix("1::1/128")};
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
