#include <algorithm>
#include <array>

#include "Server.h"
#include "Target.h"

using fuzz::must;
using namespace host;
using namespace host::control;

// Reads the bytes as what three clients send to a service, in pieces, with time that passes and replies that
// are taken or not. Nothing may crash, every byte that a client is sent must belong to a reply, the queues
// stay within their limits, and clients that half ask or do not read are gone in the end. Aborts when not.

namespace {

/// Says `left` things, now and then nothing.
class Countdown : public Stream {
 public:
  explicit Countdown(U32 left) : left_(left) {}
  std::optional<Reply> next() override {
    if (++asked_ % 3 == 0) return std::nullopt;
    --left_;
    return Reply{"{}", {}, left_ > 0};
  }

 private:
  U32 left_;
  U32 asked_ = 0;
};

class Methods : public Handler {
 public:
  const std::vector<Interface>& interfaces() const override { return interfaces_; }
  std::optional<Answer> call(std::string_view method, const nlohmann::json& parameters, bool,
                             const Peer&) override {
    if (method == "f.Echo") return Reply{parameters.dump(), {}, false};
    if (method == "f.Count") return std::make_unique<Countdown>(20);
    if (method == "f.Large") return Reply{R"({"a":")" + std::string(3000, 'x') + "\"}", {}, false};
    return std::nullopt;
  }

 private:
  std::vector<Interface> interfaces_{{"f", "interface f\nmethod Later() -> ()\n"}};
};

class Run {
 public:
  explicit Run(fuzz::Bytes input) : input_(fuzz::textOf(input)) {}

  void all() {
    while (input_.size() >= 2) step();
    for (int i = 0; i < 50 && server_.clients() > 0; ++i) pass(1'000'000'000);
    must(server_.clients() <= clients_.size());
    for (const Server::Id id : clients_) must(server_.output(id).empty());
  }

 private:
  static Limits limits() {
    Limits limits;
    limits.request = 300;
    limits.room = 2000;
    limits.queue = 6000;
    limits.batch = 4;
    return limits;
  }
  /// A head of two bytes: whose and what, and how much.
  void step() {
    const auto head = static_cast<std::uint8_t>(input_[0]);
    const std::size_t size = std::min<std::size_t>(static_cast<std::uint8_t>(input_[1]), input_.size() - 2);
    Server::Id& id = clients_[head % clients_.size()];
    input_.remove_prefix(2);
    if (head % 8 == 7) return pass(size * 100'000'000);
    if (head % 8 == 6) return take(id, size * 16);
    if (head % 8 == 5 && size == 0) return server_.finished(id);
    if (server_.output(id).empty() && !server_.wantsInput(id)) id = server_.connect({}).value_or(id);
    if (server_.wantsInput(id)) server_.received(id, input_.substr(0, size), now_);
    input_.remove_prefix(size);
    check();
  }
  void pass(Nanos time) {
    now_ += time;
    for (int i = 0; i < 100 && server_.turn(now_).deadline <= now_; ++i) check();
  }
  void take(Server::Id id, std::size_t size) {
    const std::string_view some = server_.output(id).substr(0, size);
    std::string& taken = taken_[id].append(some);
    server_.sent(id, some.size(), now_);
    for (std::size_t end; (end = taken.find('\0')) != std::string::npos; taken.erase(0, end + 1)) {
      must(nlohmann::json::accept(taken.substr(0, end)));
    }
    pass(0);
  }
  void check() {
    for (const Server::Id id : clients_) {
      const std::string_view output = server_.output(id);
      must(output.empty() || output.back() == '\0');
      must(output.size() <= server_.limits().queue + 4 * 4000);
    }
  }

  std::string_view input_;
  Methods methods_;
  Server server_{methods_, {}, limits()};
  std::array<Server::Id, 3> clients_{};
  std::map<Server::Id, std::string> taken_;  // of a reply that is not yet whole
  Nanos now_ = 0;
};

const fuzz::Target target("control", [](fuzz::Bytes bytes) { Run(bytes).all(); });

}  // namespace
