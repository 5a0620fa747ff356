#include "Simulation.h"

#include <fmt/format.h>

#include <algorithm>
#include <deque>
#include <filesystem>
#include <fstream>

#include "../../bench/CountAllocations.h"
#include "ConfigReader.h"
#include "ConfigText.h"
#include "Describe.h"
#include "Past.h"
#include "Zan/Hash.h"
#include "Zan/MemPool.h"

using namespace host;
using kernel::RouteOp;
using Lumo::Prefix;
namespace fs = std::filesystem;

namespace {

struct Failure : std::runtime_error {
  using std::runtime_error::runtime_error;
};

constexpr U32 eventCount = 200;
constexpr Nanos atMost = seconds(1);  // until all is right again
constexpr U64 slack = 100;            // room that containers keep,
constexpr U64 slackAChange = 5;       // and what the history takes

struct Held {
  U64 objectBytes;
  U64 allocations;
};
Held held() {
  return {Zan::ZanMemPool::bytesInUse(), liveAllocations()};
}
const std::vector<std::string> sources{"10.0.1.7", "10.0.2.200", "10.0.9.1", "10.0.0.1", "20.0.0.9",
                                       "20.1.0.9", "21.0.0.9",   "22.0.0.9", "30.0.0.1"};

const control::Limits limits{.clients = 6, .request = 2000, .room = 600, .batch = 2};

Configuration configurationIn(const std::string& path) {
  try {
    return readConfiguration(path);
  } catch (const ConfigurationError&) {
    return {};
  }
}

}  // namespace

struct Simulation::Daemon {
  Daemon(LiveRouter::Options options, daemon::Log::Sink sink)
      : log(daemon::Level::error, false, std::move(sink)),
        clock(options.clock),
        live(std::move(options), log),
        service(live.router(), &live.configurator(), clock,
                {"a simulation", clock(), [] { return U64{0}; }, exported()}),
        server(service, {"mrib", "mribd", version(), ""}, limits) {}
  std::optional<RibService::Exported> exported() const {
    if (!live.exported()) return std::nullopt;
    return RibService::Exported{live.exported()->options().table, {}, live.exported()->exporter()};
  }
  /// The answer to a call, without what stands before it.
  Json answer(const std::string& method, const Json& parameters) {
    const auto answer = service.call("org.mrib." + method, nlohmann::json(parameters), false, {0, true});
    Json json = Json::parse(std::get<control::Reply>(*answer).parameters);
    json.erase("generation");
    return json;
  }
  std::string unresolved() {
    std::string all;
    const Router& router = live.router();
    const Why why(router);
    for (const auto& u : router.agent().unresolved()) {
      all += documents::textOf(documents::ofUnresolved(router.configuration(), why, u)) + '\n';
    }
    return all;
  }

  daemon::Log log;
  Router::Clock clock;
  LiveRouter live;
  RibService service;
  control::Server server;
  daemon::Turns turns{live};
  Past past{live.router()};
};

/// Watchers know the state by what they were told; the others count what they are owed.
struct Simulation::Client {
  enum class Kind { monitor, watch, asker, rude };
  Kind kind;
  control::Server::Id id;
  std::string unsent{};
  std::string got{};
  std::size_t pace = 4096;
  bool reads = true;
  bool wasDeaf = false;
  std::deque<std::string> owed{};  // what answers tell of, in order
  std::map<std::string, std::string> routes{};
  std::map<std::string, std::string> answers{};
  U64 generation = 0;
  bool complete = true;

  void ask(const std::string& method, const Json& parameters, bool more) {
    unsent +=
        Json{{"method", "org.mrib." + method}, {"parameters", parameters}, {"more", more}}.dump() + '\0';
  }
};

Simulation::Simulation(U64 seed, const std::string& folder, bool isLoud)
    : seed_(seed), path_(folder + "/mrib.conf"), isLoud_(isLoud), kernel_((dice_.seedIs(seed), dice_), now_) {
  kernel_.isLoud = isLoud;
  kernel_.onWrite = [this](auto ops) { checkWrite(ops); };
  if (dice_(3) != 0) export_ = {VirtualKernel::exportTable, dice_(2) ? ExportFor::frr : ExportFor::kernel};
  fs::remove_all(path_);
  std::ofstream(path_) << line() << '\n';
  elementsAReply = 1 + seed % 3;
  mostPartsBehind = 1 + seed % 10;
}

Simulation::~Simulation() = default;

void Simulation::fail(const std::string& what) const {
  throw Failure(what);
}

void Simulation::say(const std::string& what) const {
  if (isLoud_) fmt::print(stderr, "{:>9.3f} {}\n", static_cast<double>(now_) / 1e9, what);
}

std::string Simulation::run() {
  try {
    start();
    returnToStart();
    daemon_->past.forget();
    const Held before = held();
    for (U32 number = 0; number < eventCount; ++number) {
      dice_.seedIs(Zan::mix(seed_, number));
      event();
      turn();
    }
    returnToStart();
    daemon_->past.forget();
    const Held now = held();
    if (now.objectBytes != before.objectBytes ||
        now.allocations > before.allocations + slack + slackAChange * history_) {
      fail(fmt::format("{} bytes in objects were {}, {} allocations were {}", now.objectBytes,
                       before.objectBytes, now.allocations, before.allocations));
    }
    return {};
  } catch (const Failure& failure) {
    return failure.what();
  }
}

/// To the state of the kernel and of the configuration that it began with, all clients gone.
void Simulation::returnToStart() {
  kernel_.faultyIs(false);
  kernel_.reset();
  for (const auto& client : clients_) daemon_->server.closed(client->id);
  clients_.clear();
  list_.reset();
  fs::remove_all(path_);
  std::ofstream(path_) << "ip mroute 20.0.0.0/8 eth1\n";
  if (call("Reload", Json::object()).contains("error"))
    fail("it does not take the configuration of the start");
  rest(true);
}

// ---- What happens ----

void Simulation::event() {
  kernel_.faultyIs(true);
  const U32 what = dice_(40);
  if (what < 22) {
    for (U32 n = dice_(3) + 1; n > 0; --n) say(kernel_.change());
  } else if (what < 25) {
    configure();
  } else if (what < 27) {
    reload();
  } else if (what < 29) {
    connect();
  } else if (what < 32 && !clients_.empty()) {
    meddle(*clients_[dice_(static_cast<U32>(clients_.size()))]);
  } else if (what < 36) {
    pass(milliseconds(dice_(100)));
  } else if (what < 37) {
    pass(seconds(dice_(12)));
  } else if (what < 39) {
    rest(dice_(4) == 0);
  } else if (dice_(3) == 0) {
    start();
  }
}

LiveRouter::Options Simulation::options(bool isFresh) const {
  LiveRouter::Options options;
  options.path = path_;
  options.mirror.needsCarrier = export_ && export_->user == ExportFor::frr;
  options.configuration = isFresh ? daemon_->live.router().configuration() : configurationIn(path_);
  if (export_ && !isFresh) options.exported = {*export_};
  options.access = const_cast<VirtualKernel&>(kernel_).access();
  options.clock = [this] { return now_; };
  options.history = history_;
  return options;
}

/// It dies and comes back, if it was there.
void Simulation::start() {
  say("starts");
  clients_.clear();
  list_.reset();
  writtenAt_.clear();
  kernel_.forgetFollowed();
  daemon_.reset();
  const auto sink = [this](std::string_view line) { fault_ = line; };
  try {
    daemon_ = std::make_unique<Daemon>(options(false), sink);
  } catch (const Error&) {  // lines that lead in a circle
    std::ofstream(path_, std::ios::trunc) << "";
    daemon_ = std::make_unique<Daemon>(options(false), sink);
  }
}

void Simulation::connect() {
  const auto kind = static_cast<Client::Kind>(dice_(4));
  const auto id = daemon_->server.connect({1000, false});
  if (!id) return;
  say("a client comes");
  Client& client = *clients_.emplace_back(new Client{kind, *id});
  if (kind == Client::Kind::monitor) client.ask("Monitor", Json::object(), true);
  if (kind == Client::Kind::watch) {
    client.ask("Watch", {{"addresses", sources}, {"prefixes", {"20.0.0.0/8", "10.0.1.0/24"}}}, true);
  }
  if (kind != Client::Kind::rude) return meddle(client);
  const std::string rudeness[] = {"}", "{\"method\":", std::string(3000, ' '), "[[]]",
                                  R"({"method":"org.mrib.GetStatus"})"};
  const U32 which = dice_(5);
  client.reads = which < 4 && dice_(2) == 0;
  client.unsent = rudeness[which] + (which == 4 || dice_(2) ? std::string(1, '\0') : "");
}

/// It reads slowly or not at all, sends byte by byte, asks more, or goes.
void Simulation::meddle(Client& client) {
  static const std::pair<const char*, const char*> methods[] = {
      {"GetStatus", "mirror"},          {"ListRoutes", "routes"},    {"ListUnicastRoutes", "routes"},
      {"ListUnresolved", "unresolved"}, {"GetWarnings", "warnings"}, {"Inspect", "text"},
      {"GetConfiguration", "text"},     {"Nothing", "method"},       {"Monitor", "restart"}};
  const U32 what = dice_(8);
  if (what == 0) {
    daemon_->server.closed(client.id);
    std::erase_if(clients_, [&](const auto& c) { return c.get() == &client; });
  } else if (what == 1 && client.kind != Client::Kind::rude) {
    client.reads = !client.reads;
    client.wasDeaf = true;
  } else if (what == 2) {
    client.pace = 1 + dice_(200);
  } else if (client.kind == Client::Kind::asker) {
    const auto& [method, answer] = methods[dice_(9)];
    client.owed.push_back(answer);
    client.ask(method, Json::object(), answer != std::string("restart") && dice_(2) == 0);
  }
}

std::string Simulation::line() {
  static const char* prefixes[] = {"20.0.0.0/8", "21.0.0.0/8", "22.0.0.0/8", "20.1.0.0/16", "0.0.0.0/0"};
  static const char* neighbours[] = {"20.0.0.9", "20.1.0.9", "21.0.0.9", "22.0.0.9", "10.0.1.1"};
  std::string text = fmt::format("ip mroute {} ", prefixes[dice_(5)]);
  if (const U32 kind = dice_(4); kind == 0) {
    text += fmt::format("10.0.{}.{}", dice_(4), 200 + dice_(2));
  } else if (kind == 1) {
    text += neighbours[dice_(5)];
  } else {
    text += fmt::format("{}{}", dice_(3) ? "eth" : "other", 1 + dice_(5));
    if (dice_(3) == 0) text += fmt::format(" neighbor 10.0.{}.201", dice_(4));
  }
  return text + fmt::format(" {}", 1 + dice_(3));
}

/// One call by a client that comes and goes.
Simulation::Json Simulation::call(const std::string& method, const Json& parameters) {
  const auto id = daemon_->server.connect({0, true});
  if (!id) fail("root is not let in");
  const Json request{{"method", "org.mrib." + method}, {"parameters", parameters}};
  daemon_->server.received(*id, request.dump() + '\0', now_);
  const std::string reply(daemon_->server.output(*id));
  daemon_->server.closed(*id);
  if (reply.empty() || reply.back() != '\0') fail(method + " is not answered at once");
  return Json::parse(reply.begin(), reply.end() - 1);
}

void Simulation::configure() {
  static const char* modes[] = {"mrib-only", "mrib-then-urib", "urib-only", "longer-prefix",
                                "lower-distance"};
  const Configuration before = daemon_->live.router().configuration();
  std::vector<std::string> commands;
  for (U32 n = 1 + dice_(3); n > 0; --n) {
    if (const U32 kind = dice_(8); kind < 4 || before.mroutes.empty()) {
      commands.push_back(line());
    } else if (kind < 7) {
      commands.push_back("no " + textOf(before.mroutes[dice_(static_cast<U32>(before.mroutes.size()))]));
    } else {
      commands.push_back(fmt::format("ip multicast rpf-lookup-mode {}", modes[dice_(5)]));
    }
  }
  const bool isDry = dice_(6) == 0;
  const Json reply = call("Configure", {{"commands", commands}, {"save", dice_(8) == 0}, {"dryRun", isDry}});
  const bool isTaken = !isDry && !reply.contains("error");
  say(fmt::format("configure {} and more: {}", commands[0], isTaken ? "taken" : "not taken"));
  if (!isTaken && textOf(before) != textOf(daemon_->live.router().configuration()))
    fail("a refused change was made");
}

/// By a call or a signal. The file may be wrong, or none.
void Simulation::reload() {
  fs::remove_all(path_);
  const U32 kind = dice_(8);
  if (kind == 0) fs::create_directory(path_);
  if (kind > 1) {
    std::ofstream file(path_);
    for (U32 n = dice_(6); n > 0; --n) file << line() << '\n';
    if (kind == 2) file << "ip mroute\n";
  }
  const std::string before = textOf(daemon_->live.router().configuration());
  bool isTaken = true;
  if (dice_(2) == 0) {
    isTaken = !call("Reload", Json::object()).contains("error");
  } else {
    try {
      daemon_->live.reload(now_);
    } catch (const Error&) {
      isTaken = false;
    }
    daemon_->turns.readable();
  }
  say(isTaken ? "reloaded" : "not reloaded");
  const std::string right = isTaken ? textOf(readConfiguration(path_)) : before;
  if (textOf(daemon_->live.router().configuration()) != right) fail("the configuration is not what was read");
}

// ---- Time ----

/// What the loop does before it waits. Returns until when.
Nanos Simulation::turn() {
  if (kernel_.readableAt() <= now_) daemon_->turns.readable();
  const Nanos live = daemon_->turns.turn(now_);
  if (!fault_.empty()) fail(fault_);
  daemon_->log.turn(now_);
  if (dice_(4) == 0) probe();
  if (dice_(16) == 0) readList();
  bool moved = false;
  for (auto& client : clients_) moved |= carry(*client);
  const auto server = daemon_->server.turn(now_);
  for (const auto& [id, why] : server.dropped) {
    const auto at =
        std::find_if(clients_.begin(), clients_.end(), [&, i = id](const auto& c) { return c->id == i; });
    if (!why.empty() && (*at)->kind != Client::Kind::rude && !(*at)->wasDeaf)
      fail("a client is dropped: " + why);
    clients_.erase(at);
  }
  for (auto& client : clients_) moved |= carry(*client);
  if (moved || daemon_->live.isWoken()) return now_;
  return std::min({live, server.deadline, kernel_.readableAt()});
}

void Simulation::pass(Nanos time) {
  const Nanos end = now_ + time;
  for (int idle = 0; now_ < end; ++idle) {
    const Nanos until = turn();
    if (until > now_) idle = 0;
    if (idle > 20000) fail("the loop spins");
    now_ = std::clamp(until, now_, end);
  }
}

/// True when bytes went either way.
bool Simulation::carry(Client& client) {
  control::Server& server = daemon_->server;
  const std::size_t asked = std::min(client.unsent.size(), server.wantsInput(client.id) ? client.pace : 0);
  if (asked > 0) server.received(client.id, client.unsent.substr(0, asked), now_);
  client.unsent.erase(0, asked);
  const std::string_view output = server.output(client.id).substr(0, client.reads ? client.pace : 0);
  const std::size_t took = output.size();
  client.got += output;
  if (took > 0) server.sent(client.id, took, now_);
  for (std::size_t end; (end = client.got.find('\0')) != std::string::npos; client.got.erase(0, end + 1)) {
    hear(client, client.got.substr(0, end));
  }
  return asked + took > 0;
}

void Simulation::hear(Client& client, const std::string& message) {
  if (client.kind == Client::Kind::rude) return;
  const Json reply = Json::parse(message);
  if (client.kind == Client::Kind::monitor) return hearMonitor(client, reply["parameters"]);
  if (client.kind == Client::Kind::watch) return hearWatch(client, reply["parameters"]);
  if (client.owed.empty() || !reply["parameters"].contains(client.owed.front()))
    fail("not asked: " + message);
  if (!reply.contains("continues")) client.owed.pop_front();
}

void Simulation::hearMonitor(Client& client, const Json& reply) {
  const U64 generation = reply["generation"];
  if (reply["restart"] && client.complete) client.routes.clear();
  const bool isNext =
      client.complete ? generation > client.generation || reply["restart"] : generation == client.generation;
  if (!isNext) fail(fmt::format("generation {} follows {}", generation, client.generation));
  client.generation = generation;
  client.complete = reply["complete"];
  for (const Json& change : reply["changes"]) {
    const std::string prefix = change["prefix"];
    const std::string before = client.routes.contains(prefix) ? client.routes[prefix] : "null";
    if (before != change["before"].dump()) fail("was " + before + ", not as " + change.dump());
    client.routes[prefix] = change["after"].dump();
    if (change["after"].is_null()) client.routes.erase(prefix);
  }
}

void Simulation::hearWatch(Client& client, const Json& reply) {
  for (const Json& answer : reply["answers"]) client.answers[answer["source"]] = answer.dump();
  for (const Json& route : reply["routes"]) client.routes[route["prefix"]] = route["route"].dump();
}

// ---- Judgement ----

/// Whatever is answered while nothing is on its way to the daemon is the truth, or marked.
void Simulation::probe() {
  const Router& router = daemon_->live.router();
  if (!kernel_.isHeard() || kernel_.isHiding() || router.isStale()) return;
  const Truth truth(kernel_, router.configuration(), options(true).mirror.needsCarrier);
  const std::string wrong = difference(truth.lines, Truth(router).lines);
  if (!wrong.empty()) fail("wrong and not stale:\n" + wrong);
}

/// A part of a list that takes many turns: what it says is so now, or marked.
void Simulation::readList() {
  static const char* methods[] = {"ListRoutes", "ListUnicastRoutes", "GetWarnings", "ListInterfaces",
                                  "ListUnresolved"};  // the last tells of the exported table, too
  if (!list_) {
    listed_ = methods[dice_(export_ ? 4 : 5)];
    auto answer = daemon_->service.call("org.mrib." + listed_, nlohmann::json::object(), true, {0, true});
    list_ = std::move(std::get<std::unique_ptr<control::Stream>>(*answer));
  }
  const control::Reply reply = *list_->next();
  if (!reply.continues) list_.reset();
  const Json part = Json::parse(reply.parameters);
  const Router& router = daemon_->live.router();
  if (part["stale"]) return;
  if (router.isStale() || part["generation"] != router.generation()) fail("not marked: " + part.dump());
  const Json all = daemon_->answer(listed_, Json::object()).back();
  for (const Json& element : part.back()) {
    if (std::find(all.begin(), all.end(), element) == all.end()) fail("wrong in a list: " + element.dump());
  }
}

/// Nothing more happens, and by and by all is as it would be after a start: within a second of the last fault
/// or, for what the kernel tells nobody of, after an audit.
void Simulation::rest(bool isLong) {
  isLong |= kernel_.isHiding();
  say(isLong ? "a long rest" : "a rest");
  kernel_.faultyIs(false);
  for (auto& client : clients_) client->reads |= client->kind != Client::Kind::rude;
  const bool wasRefused = kernel_.refusedAt() + seconds(2) > now_;
  pass(isLong ? seconds(125) : atMost + (wasRefused ? seconds(1) : 0));
  kernel_.lookedAt();
  const Router& router = daemon_->live.router();
  if (router.isStale()) fail("stale for ever");
  probe();
  const std::string otherwise = daemon_->past.difference(*daemon_->live.history(), sources);
  if (!otherwise.empty()) fail(otherwise);
  Daemon fresh(options(true), [](auto) {});
  for (Nanos at = now_; fresh.live.router().isStale(); at += milliseconds(20)) fresh.live.turn(at);
  const std::pair<const char*, Json> questions[] = {{"ListRoutes", Json::object()},
                                                    {"ListUnicastRoutes", Json::object()},
                                                    {"GetWarnings", Json::object()},
                                                    {"Lookup", {{"addresses", sources}}}};
  for (const auto& [method, parameters] : questions) {
    const std::string is = daemon_->answer(method, parameters).dump();
    const std::string right = fresh.answer(method, parameters).dump();
    if (is != right) fail(fmt::format("{}\n  is    {}\n  fresh {}", method, is, right));
  }
  if (daemon_->unresolved() != fresh.unresolved())
    fail("unresolved: " + daemon_->unresolved() + fresh.unresolved());
  const Json is = daemon_->answer("GetStatus", Json::object());
  const Json right = fresh.answer("GetStatus", Json::object());
  for (const char* count : {"routes", "configured", "unresolved", "links", "unicastRoutes", "stale"}) {
    if (is[count] != right[count])
      fail(fmt::format("{}: {} and {}", count, is[count].dump(), right[count].dump()));
  }
  checkClients(isLong);
  if (export_) checkExport(fresh.live.router(), isLong);
}

/// Watchers know what there is, everybody has been answered, and who behaves badly for long is gone.
void Simulation::checkClients(bool isLong) {
  std::map<std::string, std::string> routes;
  std::map<std::string, std::string> answers;
  const Json list = daemon_->answer("ListRoutes", Json::object());
  const Json lookups = daemon_->answer("Lookup", {{"addresses", sources}});
  for (const Json& r : list["routes"]) routes[r["prefix"]] = r.dump();
  for (const Json& a : lookups["answers"]) answers[a["source"]] = a.dump();
  for (const auto& c : clients_) {
    if (c->kind == Client::Kind::monitor && c->complete && c->unsent.empty() && c->routes != routes) {
      fail("a monitor knows " + Json(c->routes).dump() + ", not " + Json(routes).dump());
    }
    if (c->kind == Client::Kind::rude && isLong) fail("a client that sends no request stays");
    if (c->kind == Client::Kind::asker && !c->owed.empty()) fail("a client is owed an answer");
    if (c->kind != Client::Kind::watch || !c->unsent.empty()) continue;
    if (c->answers != answers)
      fail("a watcher knows " + Json(c->answers).dump() + ", not " + Json(answers).dump());
    for (const auto& [prefix, route] : c->routes) {
      if (route != (routes.contains(prefix) ? routes[prefix] : "null")) fail("a watcher knows " + route);
    }
  }
}

/// What is written is ours, is no nuisance to readers, and was not right before.
void Simulation::checkWrite(std::span<const RouteOp> ops) {
  const bool follows = export_->user == ExportFor::frr;  // such readers are told the same again
  for (const RouteOp& op : ops) {
    const Prefix prefix = op.route.prefix.v4Prefix();
    const auto& there = kernel_.table(VirtualKernel::exportTable)[op.route.prefix];
    const auto isOurs = [](const auto& r) { return r.protocol == Exporter::protocol; };
    if (!isOurs(op.route)) fail("somebody else's route is written");
    const auto* entry = daemon_ ? daemon_->live.exported()->exporter().entry(prefix) : nullptr;
    const bool isRight = entry && !daemon_->live.exported()->mirror().isStale() && kernel_.isHeard() &&
                         entry->wanted.type == op.route.type && entry->wanted.hops == op.route.hops &&
                         op.route.rest == 0 && !follows;
    if (!op.add && isRight && op.route.metric == Exporter::metric &&
        std::count_if(there.begin(), there.end(), isOurs) == 1) {
      fail(prefix.stringValue() + " is missing for no reason");
    }
    if (const auto at = writtenAt_.find(prefix);
        at != writtenAt_.end() && at->second != now_ &&
        now_ < at->second + (follows ? Exporter::doubt : Exporter::rest)) {
      fail(prefix.stringValue() + " has no rest");
    }
    writtenAt_[prefix] = now_;
  }
}

/// The exported table has what is wanted, but for what the kernel refuses.
void Simulation::checkExport(const Router& fresh, bool isLong) {
  const Exporter& exporter = daemon_->live.exported()->exporter();
  WantedRoutes wanted(fresh, export_->user);
  wanted.configurationChanged();
  std::set<Prefix> prefixes{Prefix()};
  for (const mrib::Route& route : fresh.routes()) prefixes.insert(route.prefix);
  for (const auto& [prefix, routes] : kernel_.table(VirtualKernel::exportTable))
    prefixes.insert(prefix.v4Prefix());
  std::size_t right = 0;
  for (const Prefix& prefix : prefixes) {
    const Wanted want = wanted.of(prefix);
    std::vector<kernel::Route> ours = kernel_.table(VirtualKernel::exportTable)[kernel::IpGenPrefix(prefix)];
    const bool isCrowded = std::erase_if(ours, [](const auto& r) {  // ours could not be added again
                             return r.protocol != Exporter::protocol && r.metric == Exporter::metric;
                           }) > 0;
    std::erase_if(ours, [](const auto& r) { return r.protocol != Exporter::protocol; });
    const auto sameWay = [](const auto& a, const auto& b) {
      return a.gateway == b.gateway && a.link == b.link;
    };
    const bool isRight =
        ours.size() == 1 && ours[0].type == want.type && ours[0].metric == Exporter::metric &&
        std::equal(ours[0].hops.begin(), ours[0].hops.end(), want.hops.begin(), want.hops.end(), sameWay);
    right += want.isRoute() && isRight;
    if (want.isRoute() && isRight && export_->user == ExportFor::frr && !isCrowded &&
        kernel_.hasLost(ours[0].prefix)) {
      fail("who follows the exported table has lost " + prefix.stringValue());
    }
    if (want.isRoute() ? isRight : ours.empty()) continue;
    const auto fault = exporter.faults().find(prefix);
    kernel::Route route;
    route.prefix = kernel::IpGenPrefix(prefix);
    route.table = VirtualKernel::exportTable;
    route.metric = Exporter::metric;
    route.hops = want.hops;
    const bool isRefused = ours.empty() && fault != exporter.faults().end() && fault->second.refused;
    if (!isRefused || (isLong && kernel_.faultOf(route) == 0)) {
      std::vector<std::string> texts{"wanted " + describe(route)};
      for (const kernel::Route& r : ours) texts.push_back("there is " + describe(r));
      fail(fmt::format("exported: {} {}", prefix.stringValue(), fmt::join(texts, ", ")));
    }
  }
  if (exporter.routes() != right) fail(fmt::format("{} exported routes, not {}", exporter.routes(), right));
}
