#include <gtest/gtest.h>

#include <deque>
#include <random>

#include "Server.h"

// The server against a model of one client: what it asked for, and what it is therefore sent, in this order.

namespace {

using host::Nanos;
using namespace host::control;
using nlohmann::json;

constexpr Nanos second = 1'000'000'000;
constexpr std::size_t longReply = 900;

std::string success(const json& parameters, bool continues = false) {
  std::string out;
  append(out, {parameters.dump(), {}, continues});
  return out;
}

struct Numbers : Stream {
  Numbers(int most, const bool& isOpen) : n(most), open(isOpen) {}
  std::optional<Reply> next() override {
    if (!open) return std::nullopt;
    return Reply{json{{"n", --n}}.dump(), {}, n > 0};
  }
  int n;
  const bool& open;
};

struct Later : Numbers {
  using Numbers::Numbers;
  Nanos due() const override { return 7 * second; }
};

struct Methods : Handler {
  const std::vector<Interface>& interfaces() const override { return list; }
  std::optional<Answer> call(std::string_view method, const json& parameters, bool, const Peer&) override {
    if (method == "t.Echo") return Reply{parameters.dump(), {}, false};
    if (method == "t.Long") return Reply{json{{"x", std::string(length, 'x')}}.dump(), {}, false};
    if (method == "t.Fail") return Reply{"{}", "t.Failed", true};
    if (method == "t.Due") return std::make_unique<Later>(1, open);
    if (method == "t.Count") return std::make_unique<Numbers>(parameters["n"].get<int>(), open);
    return std::nullopt;
  }
  std::vector<Interface> list{{"t", "interface t\nmethod Later () -> ()\nerror Failed ()"}};
  bool open = true;
  std::size_t length = longReply;
};

std::string failure(const Reply& reply) {
  std::string out;
  append(out, reply);
  return out;
}

struct Client {
  Server::Id id = 0;
  std::string unsent;            // bytes of requests
  std::deque<std::string> owed;  // replies, from the first that is not wholly taken; "?": something is wrong
  std::string taken;
  bool confused = false;  // has sent what is no request: nothing is owed beyond
  bool finished = false;
  bool reads = true;
  Nanos unread = 0;  // since when there is something and nothing was taken
  Nanos half = 0;    // when the first byte of the last request arrived

  void ask(const json& request, const std::vector<std::string>& replies) {
    unsent += request.dump() + '\0';
    if (!confused) owed.insert(owed.end(), replies.begin(), replies.end());
  }
  void garble(const std::string& bytes) {
    unsent += bytes + '\0';
    if (!confused) owed.emplace_back("?");
    confused = true;
  }
};

class World {
 public:
  explicit World(unsigned seed) : random_(seed) {}

  /// At the end all that is owed comes, with no turn but those that the server asks for.
  void run() {
    for (int i = 0; i < 3000 && !testing::Test::HasFailure(); ++i) step();
    methods_.open = all_ = true;
    for (bool more = true; more && !testing::Test::HasFailure();) {
      more = turn();
      for (Client& c : clients_) {
        more |= deliver(c);
        more |= take(c);
      }
    }
    for (const Client& c : clients_) EXPECT_TRUE(c.unsent.empty() && c.owed.empty()) << c.unsent;
    EXPECT_GT(answered_, 200u);
  }

 private:
  U32 upTo(U32 most) { return std::uniform_int_distribution<U32>(0, most)(random_); }

  void step() {
    if (upTo(20) == 0) connect();
    if (upTo(40) == 0) methods_.open = !methods_.open;
    if (upTo(30) == 0) pass(upTo(12) * second);
    if (!clients_.empty()) act(clients_[upTo(static_cast<U32>(clients_.size()) - 1)]);
    turn();
  }
  void connect() {
    const Peer peer{upTo(1), false};
    const bool room = clients_.size() < (peer.uid == 0 ? 5u : 4u);
    const auto id = server_.connect(peer);
    ASSERT_EQ(id.has_value(), room);
    if (!id) return;
    clients_.emplace_back().id = *id;
    clients_.back().unread = now_;
  }
  void act(Client& c) {
    const U32 what = upTo(99);
    if (what < 25 && !c.finished) ask(c);
    if (what == 25) c.reads = !c.reads;
    if (what == 26 && c.unsent.empty()) server_.finished(c.id), c.finished = true;
    if (what == 27) return leave(c.id);
    if (what > 27 && what < 70) deliver(c);
    if (what >= 70 && c.reads) take(c);
  }
  void pass(Nanos time) {
    now_ += time;
    for (Client& c : clients_) {
      if (server_.output(c.id).empty()) c.unread = now_;
    }
  }
  void leave(Server::Id id) {
    server_.closed(id);
    std::erase_if(clients_, [id](const Client& c) { return c.id == id; });
  }
  void ask(Client& c) {
    const json value{{"v", std::string(upTo(40), '"')}, {"w", {upTo(9)}}};
    const int n = static_cast<int>(1 + upTo(20));
    std::vector<std::string> numbers;
    for (int i = n; i-- > 0;) numbers.push_back(success({{"n", i}}, i > 0));
    switch (upTo(12)) {
      case 0:
        return c.ask({{"method", "t.Count"}, {"parameters", {{"n", n}}}, {"more", true}}, numbers);
      case 1:
        return c.ask({{"method", "t.Count"}, {"parameters", {{"n", n}}}}, {failure(expectedMore())});
      case 2:
        return c.ask({{"method", "t.Fail"}}, {failure({"{}", "t.Failed", false})});
      case 3:
        return c.ask({{"method", "t.Later"}}, {failure(methodNotImplemented("t.Later"))});
      case 4:
        return c.ask({{"method", "t.None"}, {"more", true}}, {failure(methodNotFound("t.None"))});
      case 5:
        return c.ask({{"method", "u.None"}, {"oneway", false}}, {failure(interfaceNotFound("u"))});
      case 6:
        return c.ask(
            {{"method", upTo(1) ? "t.Count" : "t.Long"}, {"parameters", {{"n", n}}}, {"oneway", true}}, {});
      case 7:
        return c.ask({{"method", "t.Long"}}, {success({{"x", std::string(longReply, 'x')}})});
      case 8:
        if (upTo(9) == 0) c.garble(std::string(upTo(1) * 301, ' '));
        return;
      default:
        return c.ask({{"method", "t.Echo"}, {"parameters", value}}, {success(value)});
    }
  }
  bool deliver(Client& c) {
    if (c.unsent.empty() || !server_.wantsInput(c.id)) return false;
    const std::string some = c.unsent.substr(0, all_ ? 100 : upTo(upTo(3) == 0 ? 400 : 20));
    c.unsent.erase(0, some.size());
    if (delivered_[c.id].empty()) c.half = now_;
    delivered_[c.id] += some;
    if (const auto end = delivered_[c.id].rfind('\0'); end != std::string::npos) {
      delivered_[c.id].erase(0, end + 1);
      c.half = now_;
    }
    server_.received(c.id, some, now_);
    return true;
  }
  bool take(Client& c) {
    const std::string_view some = server_.output(c.id).substr(0, all_ ? 1000 : upTo(400));
    if (some.empty()) return false;
    c.taken += some;
    c.unread = now_;
    server_.sent(c.id, some.size(), now_);
    for (std::size_t end; (end = c.taken.find('\0')) != std::string::npos; c.taken.erase(0, end + 1)) {
      check(c, c.taken.substr(0, end + 1));
    }
    return true;
  }
  void check(Client& c, const std::string& reply) {
    ASSERT_FALSE(c.owed.empty());
    if (c.owed.front() == "?") {
      ASSERT_NE(reply.find(R"(InvalidParameter","parameters":{"parameter":"the request: )"),
                std::string::npos);
    } else {
      ASSERT_EQ(reply, c.owed.front());
    }
    c.owed.pop_front();
    ++answered_;
  }
  /// True when the server wants another one at once.
  bool turn() {
    const auto turn = server_.turn(now_);
    for (const auto& [id, why] : turn.dropped) dropped(id, why);
    for (Client& c : clients_) {
      EXPECT_LE(server_.output(c.id).size(), 500u + longReply + 100);
      EXPECT_LT(now_, c.unread + 30 * second);
      EXPECT_LE(turn.deadline, server_.output(c.id).empty() ? Server::never : c.unread + 30 * second);
    }
    return turn.deadline <= now_;
  }
  void dropped(Server::Id id, const std::string& why) {
    const auto it = std::find_if(clients_.begin(), clients_.end(), [id](auto& c) { return c.id == id; });
    ASSERT_NE(it, clients_.end());
    const bool right = why.empty()                       ? it->finished && it->owed.empty()
                       : why.starts_with("no request")   ? it->confused && it->owed.empty()
                       : why.starts_with("nothing read") ? now_ >= it->unread + 30 * second
                                                         : now_ >= it->half + 10 * second;
    EXPECT_TRUE(right) << why;
    ++drops[why.substr(0, 4)];
    clients_.erase(it);
  }

 public:
  static inline std::map<std::string, int> drops;

 private:
  static Limits limits() {
    Limits limits;
    limits.clients = 4;
    limits.request = 300;
    limits.room = 500;
    limits.batch = 3;
    return limits;
  }
  std::mt19937 random_;
  Methods methods_;
  Server server_{methods_, {}, limits()};
  std::deque<Client> clients_;
  std::map<Server::Id, std::string> delivered_;  // of a request that is not yet whole
  Nanos now_ = 0;
  std::size_t answered_ = 0;
  bool all_ = false;
};

TEST(Server, SendsEachClientWhatItAskedFor) {
  for (unsigned seed = 0; seed < 60 && !testing::Test::HasFailure(); ++seed) {
    SCOPED_TRACE(seed);
    World(seed).run();
  }
  for (const char* why : {"", "no r", "noth", "half"}) EXPECT_GT(World::drops[why], 10) << why;
}

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

TEST(Server, AsksAStreamAgainWhenItIsDue) {
  One one;
  one.methods.open = false;
  EXPECT_EQ(one.say(std::string(R"({"method":"t.Due","more":true})") + '\0', 1), "");
  EXPECT_EQ(one.server.turn(2 * second).deadline, 7 * second);
  one.methods.open = true;
  EXPECT_EQ(one.why(7), "");
  EXPECT_EQ(one.take(7), R"({"parameters":{"n":0}})");
}

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
