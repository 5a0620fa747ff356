#include <gtest/gtest.h>
#include <sys/wait.h>

#include <cstdio>
#include <memory>
#include <nlohmann/json.hpp>

#include "Folder.h"

// The program itself, as its user calls it.

namespace {

struct Result {
  int code;
  std::string out;
};

class ProgramTest : public testing::Test {
 protected:
  ProgramTest() {
    folder.write(
        "link.json",
        R"([{"ifindex":1,"ifname":"lo","flags":["UP"]},{"ifindex":2,"ifname":"e\"\\\u0007","flags":["UP"]},
                          {"ifindex":3,"ifname":"eth1","flags":["UP"]}])");
    folder.write("addr.json", R"([{"ifindex":2,"addr_info":[{"family":"inet6","local":"::1","prefixlen":64},
                          {"family":"inet","local":"10.0.1.1","prefixlen":24}]},
                          {"ifindex":3,"addr_info":[{"family":"inet","local":"10.0.2.1","prefixlen":24}]}])");
    folder.write(
        "route.json",
        R"([{"dst":"default","gateway":"10.0.1.254","dev":"e\"\\\u0007","protocol":"static","flags":[]},
      {"dst":"10.0.1.0/24","dev":"e\"\\\u0007","protocol":"kernel","scope":"link","prefsrc":"10.0.1.1","flags":[]},
      {"dst":"10.0.2.0/24","dev":"eth1","protocol":"kernel","scope":"link","flags":[]},
      {"dst":"10.0.3.0/24","dev":"eth1","protocol":"kernel","scope":"link","flags":["dead","linkdown"]},
      {"type":"blackhole","dst":"10.9.0.0/16","flags":[]},
      {"dst":"172.16.0.0/16","protocol":"ospf","metric":20,"flags":[],
       "nexthops":[{"gateway":"10.0.1.2","dev":"e\"\\\u0007","weight":1,"flags":[]},{"gateway":"10.0.2.2","dev":"eth1"}]}])");
    folder.write("mrib.conf",
                 "ip mroute 20.0.0.0/8 10.0.1.7\nip mroute 20.0.0.0/8 eth1 9\nip mroute 30.0.0.0/8 20.1.1.1\n"
                 "ip mroute 40.0.0.0/8 eth7\nip mroute 50.0.0.0/8 99.1.1.1\n");
  }

  Result run(const std::string& arguments) {
    const std::string command = std::string(MRIB_PROGRAM) + " " + arguments + " 2>&1";
    std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(command.c_str(), "r"), nullptr);
    Result result{0, ""};
    char buffer[4096];
    while (const std::size_t n = fread(buffer, 1, sizeof buffer, pipe.get())) result.out.append(buffer, n);
    result.code = WEXITSTATUS(pclose(pipe.release()));
    return result;
  }
  Result runFiles(const std::string& arguments) {
    return run(arguments + " --from " + dir.string() + " -c " + (dir / "mrib.conf").string());
  }

  /// With its exit code before it.
  void expectSaid(const std::string& arguments, const std::string& part) {
    const Result r = runFiles(arguments);
    const std::string said = std::to_string(r.code) + ' ' + r.out;
    EXPECT_NE(said.find(part), said.npos) << part << " is not in\n" << said;
  }

  const Folder folder;
  const std::filesystem::path& dir = folder.path;
};

TEST_F(ProgramTest, AnswersRpfInTheLookOfARouter) {
  const Result r = runFiles("rpf 30.5.5.5");
  EXPECT_EQ(r.code, 0);
  EXPECT_NE(
      r.out.find("RPF information for 30.5.5.5\n  RPF interface: e\\\"\\\\\\x07\n  RPF neighbor: 10.0.1.7\n"
                 "  RPF route/mask: 30.0.0.0/8\n  RPF type: multicast (static)\n  RPF preference: 1\n"),
      std::string::npos)
      << r.out;
  EXPECT_NE(runFiles("rpf 10.0.2.9").out.find("RPF neighbor: 10.0.2.9 - directly connected"),
            std::string::npos);
}

TEST_F(ProgramTest, LookupModesSayWhichTableAnswers) {
  const struct {
    const char* mode;
    const char* answers;  // for 172.16.1.1, which both know, for 20.1.1.1 and for 8.8.8.8
  } cases[] = {{"mrib-only", "mrib 172.0.0.0/8, mrib 20.0.0.0/8, - -, "},
               {"mrib-then-urib", "mrib 172.0.0.0/8, mrib 20.0.0.0/8, unicast 0.0.0.0/0, "},
               {"urib-only", "unicast 172.16.0.0/16, unicast 0.0.0.0/0, unicast 0.0.0.0/0, "},
               {"longer-prefix", "unicast 172.16.0.0/16, mrib 20.0.0.0/8, unicast 0.0.0.0/0, "},
               {"lower-distance", "unicast 172.16.0.0/16, mrib 20.0.0.0/8, unicast 0.0.0.0/0, "}};
  for (const auto& c : cases) {
    folder.write("mrib.conf",
                 "ip mroute 172.0.0.0/8 10.0.1.7 150\nip mroute 20.0.0.0/8 10.0.1.7\n"
                 "ip multicast rpf-lookup-mode " +
                     std::string(c.mode) + "\n");
    const auto document = nlohmann::json::parse(runFiles("-j rpf 172.16.1.1 20.1.1.1 8.8.8.8").out);
    std::string answers;
    for (const auto& answer : document["answers"]) {
      const auto& route = answer["route"];
      answers +=
          (route.is_null() ? "- -"
                           : answer["table"].get<std::string>() + ' ' + route["prefix"].get<std::string>()) +
          ", ";
    }
    EXPECT_EQ(answers, c.answers) << c.mode;
  }
}

TEST_F(ProgramTest, ExitCodesTellTheOutcome) {
  const std::pair<const char*, int> ofFiles[] = {{"rpf 10.9.1.1", 3},           {"rpf 30.1.1.1 10.9.1.1", 3},
                                                 {"rpf 30.1.1.1 inspect", 1},   {"r", 1},
                                                 {"rp 30.1.1.1 >/dev/full", 2}, {"rpf 239.1.1.1", 1},
                                                 {"rpf nonsense", 1},           {"--trace 10", 1}};
  for (const auto& [arguments, code] : ofFiles) EXPECT_EQ(runFiles(arguments).code, code) << arguments;
  const std::pair<const char*, int> alone[] = {
      {"--no-such-option", 1}, {"--help", 0}, {"--from /nonexistent", 2}, {"--config /nonexistent", 2}};
  for (const auto& [arguments, code] : alone) EXPECT_EQ(run(arguments).code, code) << arguments;
}

TEST_F(ProgramTest, InspectsTheLiveObjectsByName) {
  const std::string resolver = "MribSm/routeResolver --call 'doAddOrUpdateRoute rpf=addr 9.9.9.9 ";
  const std::pair<std::string, const char*> cases[] = {
      {"", "0 MribSm: Routing::Multicast::Rib::MribSm\n"},
      {"MribSm/mribShadow/trie", "  nodes: S32 = "},
      {"MribSm/routeResolver/mribForPrefix", "members\n  ["},
      {"-j MribSm/trieBuilder", "\"deletedPreferenceUnknown\": {"},
      {"MribSm/routeResolver --set initialized=true", "  initialized: bool = true\n"},
      {resolver + "pref=1 p=99.0.0.0/8'", "p=99.0.0.0/8 = -1\n"},
      // Wrong names and types: what is wrong, and the nearest right name.
      {"MribSm/routeResolvr", "did you mean \"routeResolver\"?"},
      {"MribSm/routeResolver --call 'doMaybeRefreshRoutes chngedPrefix=1.0.0.0/8 add=true'",
       "1 mrib: doMaybeRefreshRoutes chngedPrefix=1.0.0.0/8 add=true: unknown argument \"chngedPrefix\" of "
       "\"doMaybeRefreshRoutes\"; did you mean \"changedPrefix\"?"},
      {"MribSm --set initialize=maybe", "expected a value of type bool, found \"maybe\""},
      {"MribSm/ipStatus/intfAddr[77]", "there is none"},
      {"MribSm/mribConfig --set route=1", "attempting to modify a const instance"},
      {resolver + "pref=0 p=9.0.0.0/8'", "1 mrib: the engine refuses this: assertion `pref'"},
  };
  for (const auto& [arguments, part] : cases) expectSaid("inspect " + arguments, part);
}

TEST_F(ProgramTest, SaysWhatIsWrongWithACommand) {
  folder.write("mroute.json", "[]");
  const std::pair<const char*, const char*> cases[] = {
      {"'f\"oo'", "1 mrib: there is no command \"f\\\"oo\""},
      {"--tabel 5 route", "1 mrib: The following arguments were not expected: 5 --tabel"},
      {"configure x", "1 mrib: configure is for a daemon (mribd), and with --from none is asked"},
      {"history --last 0", "1 mrib: --last: Value 0 not in range 1 to 4294967295"},
      {"explain 10.0.1.7 --at 25:03", "1 mrib: \"25:03\": expected a time"},
      {"explain 10.0.1.7 --at 2026-02-30", "1 mrib: \"2026-02-30\": expected a time"},
      {"what-if 'link \xFF down'", "1 mrib: \"link \\xFF down\": it is no UTF-8"},
      {"what-if 'route add 9.0.0.0/8 via 10.0.1.255'", "is a group or broadcast address"},
      {"report -o /dev/stdout", "2 mrib: /dev/stdout: can't save it: it is not a regular file"},
      {"graph -o g.png", "1 mrib: g.png: expected a name that ends in .svg"},
      {"what-if 'ip mroute 1.0.0.0/8 2.0.0.1, ip mroute 2.0.0.0/8 1.0.0.1'", "2 mrib: these routes could"},
      {"unresolved", "read once\n\n  40.0.0.0/8 eth7 1 ("},
      {"check 10.0.0.0/8 --interval 0", "no flow of 10.0.0.0/8 is in"}};
  for (const auto& [arguments, part] : cases) expectSaid(arguments, part);
}

}  // namespace
