#include <gtest/gtest.h>

#include "Server.h"

// What the server says to what is no request, and its limits; the simulation has clients of all kinds.

namespace {

using host::Nanos;
using namespace host::control;
using nlohmann::json;

constexpr Nanos second = 1'000'000'000;

struct Methods : Handler {
  const std::vector<Interface>& interfaces() const override { return list; }
  std::optional<Answer> call(std::string_view method, const json& parameters, bool, const Peer&) override {
    if (method == "t.Echo") return Reply{parameters.dump(), {}, false};
    if (method == "t.Long") return Reply{json{{"x", std::string(length, 'x')}}.dump(), {}, false};
    return std::nullopt;
  }
  std::vector<Interface> list{{"t", "interface t\nmethod Later () -> ()\nerror Failed ()"}};
  std::size_t length = 0;
};

/// A server with a client, whose time is told in seconds.
struct One {
  std::string say(const std::string& bytes, Nanos seconds) {
    server.received(id, bytes, seconds * second);
    return why(seconds);
  }
  std::string why(Nanos seconds) {
    for (;;) {
      const auto turn = server.turn(seconds * second);
      if (!turn.dropped.empty()) return turn.dropped[0].why;
      if (turn.deadline > seconds * second) return "";
    }
  }
  std::string take(Nanos seconds) {
    std::string all(server.output(id));
    server.sent(id, all.size(), seconds * second);
    if (!all.empty()) all.pop_back();
    return all;
  }
  Methods methods;
  Server server{methods, {"v", "p", "1", "u"}};
  Server::Id id = *server.connect({});
};

TEST(Server, AnswersWhatIsNoRequest) {
  const std::string deep(31, '['), end(31, ']');
  const std::pair<std::string, const char*> cases[] = {
      {R"({"method":"t.Echo","parameters":{"[[":)" + deep.substr(1) + '1' + end.substr(1) + "}}", "[[[["},
      {R"({"method":"t.Echo","parameters":{"a":)" + deep + end + "}}", "nests deeper than 32"},
      {R"({"method":"t.Echo","parameters":{"a":"\"]}"}})", R"({"a":"\"]}"})"},
      {"{\"method\":\"t.\xC3\"}", "bad JSON at byte"},
      {R"({"method":1e999})", "bad JSON"},
      {"[]", "no JSON object"},
      {"", "bad JSON at byte 1"},
      {R"({"method":5})", R"({"parameter":"method"})"},
      {R"({"method":"Echo"})", R"({"parameter":"method"})"},
      {R"({"method":"t.Echo","parameters":[]})", R"({"parameter":"parameters"})"},
      {R"({"method":"t.Echo","more":1})", R"({"parameter":"more"})"},
      {R"({"method":"t.Echo","upgrade":true})", R"({"parameter":"upgrade"})"},
      {R"({"method":"org.varlink.service.GetInfo"})", R"(["org.varlink.service","t"],"product":"p")"},
      {R"({"method":"org.varlink.service.GetInterfaceDescription","parameters":{"interface":"t"}})",
       "error Failed"},
      {R"({"method":"org.varlink.service.GetInterfaceDescription","parameters":{"interface":"u"}})",
       "InterfaceNotFound"},
      {R"({"method":"org.varlink.service.GetInterfaceDescription"})", R"({"parameter":"interface"})"},
      {R"({"method":"org.varlink.service.Get"})", "MethodNotFound"},
  };
  for (const auto& [request, reply] : cases) {
    One one;
    one.say(request + '\0', 0);
    EXPECT_NE(one.take(0).find(reply), std::string::npos) << request;
  }
}

TEST(Server, KeepsItsLimits) {
  One one;
  EXPECT_EQ(one.say(R"({"method":"t.Echo","parameters":{"a":")" + std::string(64 << 10, 'x'), 0), "");
  EXPECT_NE(one.take(0).find("longer than 65536"), std::string::npos);
  EXPECT_EQ(one.why(0), "no request: it is longer than 65536 bytes");
  One other;
  other.methods.length = 8 << 20;
  EXPECT_EQ(other.say(R"({"method":"t.Long"})" + std::string(1, '\0'), 0),
            "more than 8388608 bytes that it has not read");
  for (int i = 0; i < 64; ++i) EXPECT_TRUE(other.server.connect({1000, false}));
  EXPECT_FALSE(other.server.connect({1000, false}));
  EXPECT_TRUE(other.server.connect({0, true}));
  EXPECT_FALSE(other.server.connect({0, true}));
}

}  // namespace
