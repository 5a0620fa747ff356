#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <sstream>

#include "ConfigEdit.h"
#include "ConfigReader.h"
#include "ConfigText.h"
#include "MrouteIndex.h"

// Random configurations and edits, with a plain list as judge.

namespace {

using host::Configuration;
using host::MrouteLine;

struct Command {
  std::string text;
  std::string line;  // that it adds, sets or takes away
  bool no = false;
  bool isMode = false;
  bool any = false;  // at all preferences
};

class Random {
 public:
  explicit Random(U32 seed) : random_(seed) {}
  U32 below(U32 n) { return static_cast<U32>(random_() % n); }

  std::string prefix() { return std::to_string(1 + below(3)) + ".0.0.0/" + std::to_string(8 + below(2)); }
  std::string rpf() {
    if (below(2) == 0) return "9.9.9." + std::to_string(1 + below(3));
    const char* names[] = {"eth0",       "\"9.9.9.1\"", "\"\\x07\xC3\xA9\\\"\\\\ #\"",
                           "\"\\xFF!\"", "\"::1\"",     "\"7\""};
    return names[below(6)];
  }
  std::string mode() {
    const char* names[] = {"mrib-only", "mrib-then-urib", "urib-only", "longer-prefix", "lower-distance"};
    return names[below(5)];
  }
  Command command() {
    Command c;
    c.no = below(2) == 0;
    c.isMode = below(8) == 0;
    c.any = c.no && below(2) == 0;
    c.line = c.isMode ? "ip multicast rpf-lookup-mode " + mode() : "ip mroute " + prefix() + ' ' + rpf();
    c.text = c.no ? "no " + (c.isMode ? "ip multicast rpf-lookup-mode" : c.line) : c.line;
    const std::string preference = c.isMode || c.any ? "" : ' ' + std::to_string(1 + below(3));
    c.line += preference;
    c.text += preference;
    return c;
  }
  std::string text() {
    std::string text = below(2) ? "ip multicast rpf-lookup-mode " + mode() + "\r\n" : "";
    for (U32 n = below(30); n > 0; --n) {
      text += "ip mroute " + prefix() + ' ' + rpf() + (below(2) ? ' ' + std::to_string(1 + below(3)) : "");
      text += below(5) == 0 ? " ! why\n\n" : "\n";
    }
    return text;
  }

 private:
  std::mt19937 random_;
};

/// The configuration of a text without its lines that are there twice.
Configuration configurationIn(const std::string& text) {
  try {
    return host::parseConfiguration(text, "f");
  } catch (const host::ConfigurationError& e) {
    std::string rest;
    U32 number = 0;
    std::istringstream in(text);
    for (std::string line; std::getline(in, line);) {
      ++number;
      const auto isWrong = [&](const host::ConfigError& error) { return error.line == number; };
      if (std::none_of(e.errors().begin(), e.errors().end(), isWrong)) rest += line + '\n';
    }
    return host::parseConfiguration(rest, "f");
  }
}

void expectEqual(const Configuration& a, const Configuration& b) {
  EXPECT_EQ(a.lookupMode, b.lookupMode);
  ASSERT_EQ(a.mroutes.size(), b.mroutes.size());
  for (std::size_t i = 0; i < a.mroutes.size(); ++i) EXPECT_TRUE(isSame(a.mroutes[i], b.mroutes[i])) << i;
}

/// One command, applied to a plain list. False if it is to be refused.
bool applyPlainly(Configuration& c, const Command& command) {
  const Configuration said = host::parseConfiguration(command.line, "");
  if (command.isMode) {
    const auto before = c.lookupMode;
    c.lookupMode = command.no ? Configuration{}.lookupMode : said.lookupMode;
    return !command.no || before != c.lookupMode;
  }
  const MrouteLine& line = said.mroutes[0];
  const auto matches = [&](const MrouteLine& l) {
    return l.prefix == line.prefix && l.rpf == line.rpf && (command.any || l.preference == line.preference);
  };
  const bool there = std::any_of(c.mroutes.begin(), c.mroutes.end(), matches);
  if (command.no) std::erase_if(c.mroutes, matches);
  if (!command.no && !there) c.mroutes.push_back(line);
  return command.no == there;
}

/// Brings `c` to where a difference leads from it.
void follow(Configuration& c, const host::Difference& d) {
  std::vector<std::string> commands;
  for (const MrouteLine& l : d.gone)
    commands.push_back("no " + host::textOf(l) + (l.preference == 1 ? " 1" : ""));
  for (const auto& [l, after] : d.changed) {
    EXPECT_TRUE(l.prefix == after.prefix && l.rpf == after.rpf && l.preference != after.preference);
    commands.push_back("no " + host::textOf(l) + (l.preference == 1 ? " 1" : ""));
  }
  for (const MrouteLine& l : d.added) commands.push_back(host::textOf(l));
  for (const auto& change : d.changed) commands.push_back(host::textOf(change.after));
  c = host::edited(c, commands);
  if (d.lookupMode) c.lookupMode = d.lookupMode->second;
}

TEST(ConfigEdit, RandomEditsEqualThePlainResult) {
  for (U32 seed = 0; seed < 3000; ++seed) {
    SCOPED_TRACE(seed);
    Random random(seed);
    const Configuration before = configurationIn(random.text());
    expectEqual(before, host::parseConfiguration(host::textOf(before), "again"));
    Configuration plain = before;
    std::vector<std::string> commands;
    for (U32 n = random.below(40); n > 0; --n) {
      const Command command = random.command();
      Configuration next = plain;
      if (applyPlainly(next, command)) {
        commands.push_back(command.text);
        plain = std::move(next);
      } else {
        auto wrong = commands;
        wrong.push_back(command.text);
        EXPECT_THROW(host::edited(before, wrong), host::ConfigurationError) << command.text;
      }
    }
    const Configuration after = host::edited(before, commands);
    expectEqual(after, plain);
    const host::Difference d = differenceOf(before, after);
    EXPECT_EQ(d.empty(), differenceOf(after, before).empty());
    Configuration followed = before;
    follow(followed, d);
    EXPECT_TRUE(differenceOf(followed, after).empty());
    if (testing::Test::HasFailure()) return;
  }
}

TEST(ConfigEdit, ErrorsNameTheirCommandAndNothingIsApplied) {
  const Configuration before = host::parseConfiguration("ip mroute 1.0.0.0/8 eth0 3", "f");
  const std::string commands[] = {"no ip mroute 1.0.0.0/8 eth0",
                                  "ip mroute 1.0.0.0/8 eth0 3",
                                  "include x",
                                  "ip mroute 1.0.0.0/8 eth0 3",
                                  "no ip mroute 2.0.0.0/8 eth0",
                                  "! nothing",
                                  "no"};
  try {
    host::edited(before, commands);
    FAIL();
  } catch (const host::ConfigurationError& e) {
    EXPECT_STREQ(e.what(),
                 "command \"include x\":1: expected \"ip\" or \"no\", found \"include\"\n"
                 "command \"ip mroute 1.0.0.0/8 eth0 3\":1: the same route stands in the command line\n"
                 "command \"no ip mroute 2.0.0.0/8 eth0\":1: there is no such route\n"
                 "command \"! nothing\":1: expected \"ip\" or \"no\"\n"
                 "command \"no\":3: expected \"ip\"");
  }
}

}  // namespace
