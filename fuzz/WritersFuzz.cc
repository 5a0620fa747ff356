#include <cstdio>
#include <iostream>
#include <sstream>

#include "Client.h"
#include "CommandLine.h"
#include "Configurator.h"
#include "Error.h"
#include "Escape.h"
#include "Graphviz.h"
#include "History.h"
#include "RibService.h"
#include "Safe.h"
#include "StandardErrors.h"
#include "Strict.h"
#include "WhoAnswers.h"
#include "host/kernel/PlainKernel.h"

// Reads the bytes as which command is run on a router, and as the names that its links, its configuration
// and its user have given: whatever they are, what the command prints is what it says that it prints, by
// strict readers of JSON, DOT, Mermaid, HTML and metrics, and fit for a terminal.

namespace {

using namespace host;
using fuzz::must;
using kernel::Mirror;
using Lumo::IpAddr;
using Lumo::IpGenAddr;
using Lumo::Prefix;

/// Semicolons part them, and bars their words; `@` is what the input says.
constexpr std::string_view commands =
    R"(;-j;route|10.0.0.0/8|--longer|--unresolved;rpf|100.0.0.1|10.1.0.9|@;)"
    R"(-j|rpf|20.1.1.1|100.0.0.1|102.0.0.1;explain|100.0.0.1|--in|@;-j|explain|101.0.0.1;)"
    R"(explain|101.0.0.1;unicast;-j|unicast;unresolved|--waiting;-j|unresolved;status;-j|status;)"
    R"(monitor;-j|monitor;watch|100.0.0.1|101.0.0.0/16|@;-j|watch|102.0.0.1|100.0.0.0/16;graph;)"
    R"(graph|100.0.0.0/16;graph|--most|2;graph|--format|dot;graph|--format|dot|--most|2;)"
    R"(graph|--format|mermaid;graph|--format|mermaid|--most|2;graph|--format|json;report;check;)"
    R"(-j|check;metrics;what-if|link @ down;-j|what-if|link @ down;what-if|ip mroute 104.0.0.0/8 @;)"
    R"(what-if|--each-link;-j|what-if|--each-link;history;-j|history;explain|100.0.0.1|--at|1;)"
    R"(configure|no ip mroute 100.0.0.0/16 "@"|--dry-run;)"
    R"(-j|configure|ip mroute 105.0.0.0/8 @|--dry-run;reload;running-config;-j|running-config;)"
    R"(inspect|@;check|@;graph|@)";

/// What a kernel with three links says.
class World : public kernel::ReversePath, public kernel::MulticastCache {
 public:
  /// Its state is the second one of its history if it `changes`.
  World(const std::vector<std::string>& names, const std::string& path, bool changes) {
    for (U32 i = 1; i <= 3; ++i) {
      const IpGenAddr own(IpAddr::fromHost((10u << 24) + (i << 16) + 1));
      kernel_.links.push_back({i, names[i - 1], {}, true, true, true, 6, 0, 0});
      kernel_.addresses.push_back({i, own, own, 16, 0, false, false});
      kernel_.routes.push_back(routeOf((10u << 24) + (i << 16), 16, i, {}));
    }
    kernel_.routes.push_back(routeOf(20u << 24, 8, 1, IpGenAddr(IpAddr("10.1.0.2"))));
    serve();
    Configuration config;
    config.files = {path};
    for (U8 i = 0; i < 4; ++i) {
      const Prefix prefix(IpAddr::fromHost((100u + i) << 24), 16);
      const IpAddr hop = IpAddr::fromHost(0x0A010002u);
      if (i > 0) config.mroutes.push_back({prefix, hop, 2, U64{1} << 32 | (2 * i + 1)});
      const std::string& name = i < 3 ? names[i] : path;
      if (!name.empty()) config.mroutes.push_back({prefix, name, 1, U64{1} << 32 | (2 * i + 2)});
    }
    router.configurationIs(std::move(config), now);
    router.conclude(now);
    history.emplace(router, History::Clocks{clock(), clock()});
    if (!changes) return;
    kernel::Link& second = kernel_.links[1];
    second.up = second.lowerUp = second.running = false;
    kernel_.routes.erase(kernel_.routes.begin() + 1);
    mirror.event({0, 0, kernel::LinkChange{second, false}}, now);
    serve();
    router.conclude(now);
  }
  Router::Clock clock() {
    return [this] { return now; };
  }

  std::optional<kernel::PacketSettings> settings(const kernel::Link&) const override {
    return kernel::PacketSettings{{1, true, false}, {0, true, false}};
  }
  std::optional<kernel::SourceRoute> routeTo(IpAddr, const kernel::Link&) const override {
    return kernel::SourceRoute{kernel::RouteType::unicast, {}, 254, {{{}, 1, 0}}};
  }
  std::unique_ptr<kernel::MulticastReading> read() const override {
    struct Reading : kernel::MulticastReading {
      bool step() override {
        for (U32 i = 1; i <= 3; ++i) {
          state_.interfaces.push_back({253, i, false, 1, 2, 3, 4});
          state_.routes.push_back(
              {253, IpAddr::fromHost((99u + i) << 24 | 1), IpAddr("239.1.1.1"), true, i, {1, 2}, 9, 99, i});
        }
        return false;
      }
    };
    return std::make_unique<Reading>();
  }
  bool isLive() const override { return false; }

  Nanos now = seconds(1000);
  Mirror mirror{{}, now};
  Router router{mirror, clock()};
  std::optional<History> history;

 private:
  static kernel::Route routeOf(U32 net, U8 length, U32 link, IpGenAddr gateway) {
    kernel::Route route;
    route.prefix = Prefix(IpAddr::fromHost(net), length);
    route.table = 254;
    route.hops.push_back({gateway, link, 0});
    return route;
  }
  void serve() {
    for (Mirror::Action action; (action = mirror.next(now)).kind != Mirror::Action::Kind::wait;) {
      if (action.kind == Mirror::Action::Kind::dump) kernel_.answer(mirror, action, now);
    }
  }

  PlainKernel kernel_;
};

/// The service of such a router, without a daemon around it.
class Served : public Backend {
 public:
  Served(World& world, std::string name)
      : name_(std::move(name)), world_(world), service_(world.router, &configurator_, world.clock(), [&] {
          RibService::Setting setting{name_, 0};
          setting.kernel = &world;
          setting.cache = &world;
          setting.history = [&world] { return &*world.history; };
          return setting;
        }()) {}

  std::string name() const override { return name_; }
  Json call(const std::string& method, const Json& parameters) override {
    const control::Answer answer = ask(method, parameters, false);
    return parsed(std::get<control::Reply>(answer));
  }
  void stream(const std::string& method, const Json& parameters,
              const std::function<bool(const Json&)>& each) override {
    control::Answer answer = ask(method, parameters, true);
    if (const auto* reply = std::get_if<control::Reply>(&answer)) return void(each(parsed(*reply)));
    control::Stream& stream = *std::get<std::unique_ptr<control::Stream>>(answer);
    for (int idle = 0; idle < 3; world_.now += seconds(1)) {
      const auto reply = stream.next();
      idle += !reply;
      if (reply && (!each(parsed(*reply)) || !reply->continues)) return;
    }
  }

 private:
  control::Answer ask(const std::string& method, const Json& parameters, bool more) {
    auto answer = service_.call(method, parameters, more, {0, true});
    return answer ? std::move(*answer) : control::methodNotFound(method);
  }
  static Json parsed(const control::Reply& reply) {
    if (reply.error.empty()) return Json::parse(reply.parameters);
    throw control::RemoteError(reply.error, nlohmann::json::parse(reply.parameters));
  }

  std::string name_;
  World& world_;
  Configurator configurator_{world_.router, "", world_.clock()};
  RibService service_;
};

/// What `act` prints, and says on standard error.
template <class Act>
std::pair<std::string, std::string> printedBy(Act act) {
  char* text = nullptr;
  std::size_t size = 0;
  std::ostringstream errors;
  FILE* const usual = std::exchange(stdout, open_memstream(&text, &size));
  std::streambuf* const usualErrors = std::cerr.rdbuf(errors.rdbuf());
  act();
  std::cerr.rdbuf(usualErrors);
  std::fclose(std::exchange(stdout, usual));
  std::string out(text, size);
  std::free(text);
  return {std::move(out), errors.str()};
}

void judge(const Request& request, const std::string& text) {
  must(fuzz::isSafe(text));
  if (request.json || request.format == "json") {
    std::istringstream lines(text);
    const bool isWhole = nlohmann::json::accept(text);
    for (std::string line; !isWhole && std::getline(lines, line);) must(nlohmann::json::accept(line));
  } else if (!text.empty()) {
    if (request.format == "dot") fuzz::readDot(text);
    if (request.format == "mermaid") fuzz::readMermaid(text);
    if (request.command == "report") fuzz::PageReader{text};
    if (request.command == "metrics") fuzz::readMetrics(text);
  }
}

std::vector<Request> parsedCommands() {
  std::vector<Request> requests;
  for (const std::string& command : fuzz::split(commands, ';'))
    readCommandLine(fuzz::split(command, '|'), requests.emplace_back());
  return requests;
}

/// A command with what the input says.
Request requestOf(U8 number, const std::string& argument) {
  static const std::vector<Request> all = parsedCommands();
  Request request = all[number % all.size()];
  std::vector<std::string*> texts{&request.incoming, &request.inspect.path};
  for (std::string& text : request.arguments) texts.push_back(&text);
  for (std::string* text : texts) {
    if (const auto mark = text->find('@'); mark != text->npos) text->replace(mark, 1, argument);
  }
  return request;
}

std::unique_ptr<Backend> backend;  // of the next command

void run(fuzz::Bytes bytes) {
  constexpr std::size_t longest = 100;
  if (bytes.empty()) return;
  std::vector<std::string> fields = fuzz::split(fuzz::textOf(bytes.subspan(1)), '\0');
  const char* const usual[] = {"eth0", "eth1", "eth2", "m.conf", "a machine", "10.9.9.9"};
  fields.resize(std::size(usual));
  for (std::size_t i = 0; i < fields.size(); ++i) {
    fields[i].resize(std::min(fields[i].size(), longest));
    if (fields[i].empty()) fields[i] = usual[i];
  }
  if (fields[1] == fields[0]) fields[1] += '\'';
  while (fields[2] == fields[0] || fields[2] == fields[1]) fields[2] += '"';
  World world(fields, fields[3], bytes[0] >= 128);
  backend = std::make_unique<Served>(world, "mribd at " + escaped(fields[4]));
  Request request = requestOf(bytes[0], fields[5]);
  const auto [out, errors] = printedBy([&] { execute(request, ""); });
  backend.reset();
  judge(request, out);
  must(fuzz::isSafe(errors) && ('\n' + errors).find("\nmrib: unexpected: ") == errors.npos);
  must(out.find("\n  \"error\": \"unexpected: ") == out.npos);
}

const fuzz::Target target("writers", run);

}  // namespace

// In place of those who ask a daemon, the kernel and Graphviz.
namespace host {

std::string namedSocket(const Request&) {
  return "";
}
std::unique_ptr<Backend> daemonFor(const Request&) {
  return std::move(backend);
}
std::unique_ptr<Backend> onlyDaemonFor(const Request&) {
  return std::move(backend);
}
std::unique_ptr<Backend> backendFor(const Request&) {
  return std::move(backend);
}

std::string output::svgOf(const std::string& dot) {
  fuzz::readDot(dot);
  return R"(<?xml version="1.0"?><!-- of dot --><svg width="10pt"><g><title>n0</title><text>a</text></g></svg>)";
}

}  // namespace host
