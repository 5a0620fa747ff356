#include <unistd.h>

#include <CLI/CLI.hpp>
#include <cstdio>
#include <cstdlib>
#include <iostream>

#include "ConfigCheck.h"
#include "ConfigReader.h"
#include "Error.h"
#include "Escape.h"
#include "Feed.h"
#include "Inspect.h"
#include "KernelReader.h"
#include "Output.h"
#include "Pim/MribSm/MribSm.h"
#include "Sample.h"
#include "Zan/Assert.h"
#include "Zan/Trace.h"

namespace {

enum ExitCode : int { found = 0, usageError = 1, inputError = 2, noRpfRoute = 3 };

constexpr const char* defaultConfig = "/etc/mrib.conf";

struct Options {
  std::string from;
  std::string config;
  bool json = false;
  bool sample = false;
  int traceLevel = -1;
  std::string source;  // of `mrib rpf`
  host::InspectRequest inspect;
};

/// Prints a trace with everything that a terminal might take for a command escaped.
void printTrace(void*, const Zan::TraceMessage& m) {
  std::fprintf(stderr, "%.*s %u %s\n", static_cast<int>(m.handle.size()), m.handle.data(), m.level,
               host::escaped(m.text).c_str());
}

void traceUpTo(int level) {
  for (Zan::TraceHandle* handle : Zan::TraceHandle::handles()) handle->levelsUpToIs(static_cast<U32>(level));
  Zan::traceSinkIs(printTrace, nullptr);
}

/// Where the routes and the configuration of this run come from.
struct Input {
  host::KernelState kernel;
  host::Configuration configuration;
  std::string source;
};

Input readInput(const Options& options) {
  Input input;
  input.kernel = options.from.empty() ? host::readKernel() : host::readIpJson(options.from);
  input.source =
      options.from.empty() ? "this machine's kernel" : "the files in " + host::escaped(options.from);
  if (!options.config.empty()) {
    input.configuration = host::readConfiguration(options.config);
    input.source += ", configuration " + host::escaped(options.config);
  } else if (options.sample) {
    std::string text = host::sampleConfig(input.kernel);
    if (text.empty()) {
      input.kernel = host::sampleCapture();
      input.source = "a bundled sample router (this machine has no connected route)";
      text = host::sampleConfig(input.kernel);
    }
    input.configuration = host::parseConfiguration(text, "the sample");
    input.source += ", a sample configuration";
  }
  return input;
}

mrib::Agent::Options agentOptions(const Input& input) {
  mrib::Agent::Options options;
  options.originText = [&](U64 origin) { return input.configuration.placeOf(origin); };
  return options;
}

/// An operation that was called by hand may be refused by an assertion: that is an answer, not a crash.
void reportAssertion(const Zan::AssertionFailure& failure) {
  std::fprintf(stderr, "mrib: the engine refuses this: assertion `%s' in %s\n", failure.expression,
               failure.function);
  std::_Exit(usageError);
}

int runInspect(const Options& options) {
  const Input input = readInput(options);
  if (options.traceLevel >= 0) traceUpTo(options.traceLevel);
  mrib::Agent agent(agentOptions(input));
  host::feed(agent, input.kernel, input.configuration.mroutes);
  Zan::assertionObserverIs(reportAssertion);
  host::InspectRequest request = options.inspect;
  request.json = options.json;
  try {
    std::cout << host::inspect(Zan::GenericIf(agent.engine()), "MribSm", request) << std::flush;
  } catch (const host::Error& e) {
    std::cerr << "mrib: " << e.what() << '\n';
    return usageError;
  }
  return found;
}

int run(const Options& options, bool rpf) {
  const auto source = rpf ? Lumo::IpAddr::parse(options.source) : Lumo::IpAddr();
  if (!source) {
    std::cerr << "mrib: \"" << host::escaped(options.source) << "\" is not an IPv4 address\n";
    return usageError;
  }
  if (Lumo::Prefix("224.0.0.0/4").contains(*source)) {
    std::cerr << "mrib: " << *source << " is a group address; RPF is a question about a source\n";
    return usageError;
  }
  const Input input = readInput(options);
  for (const std::string& note : input.kernel.notes) std::cerr << "mrib: note: " << note << '\n';
  if (options.traceLevel >= 0) traceUpTo(options.traceLevel);
  const std::vector<std::string> warnings = host::warningsFor(input.configuration.mroutes, input.kernel);
  for (const std::string& warning : warnings) std::cerr << "mrib: warning: " << warning << '\n';
  mrib::Agent agent(agentOptions(input));
  host::feed(agent, input.kernel, input.configuration.mroutes);
  if (rpf) {
    std::cout << (options.json ? host::rpfJson(agent, *source) : host::rpfText(agent, *source)) << std::flush;
    const mrib::Route* route = agent.rpf(*source);
    return route && !route->nextHops.empty() ? found : noRpfRoute;
  }
  const host::MribView view{agent, input.configuration.mroutes, input.source, warnings};
  std::cout << (options.json ? host::mribJson(view) : host::mribText(view)) << std::flush;
  return std::cout ? found : inputError;
}

}  // namespace

int main(int argc, char** argv) {
  Options options;
  CLI::App app{"The multicast RIB of this machine: which way packets from a source must come in."};
  app.add_option("--from", options.from,
                 "Read link.json, addr.json and route.json (ip -j) from DIR, not the kernel")
      ->type_name("DIR");
  app.add_option("-c,--config", options.config,
                 "Configuration with lines `ip mroute PREFIX {NEXTHOP|INTERFACE} [PREFERENCE]`; " +
                     std::string(defaultConfig) + " when that exists")
      ->type_name("FILE");
  app.add_flag("-j,--json", options.json, "JSON for programs");
  app.add_flag("--sample", options.sample, "Without a configuration: take a sample that fits the machine");
  app.add_option("--trace", options.traceLevel,
                 "Print the engine's traces up to LEVEL (0 to 9) on standard error")
      ->check(CLI::Range(0, 9))
      ->type_name("LEVEL");
  auto* rpf = app.add_subcommand("rpf", "The MRIB route, next hop and interface for a source");
  rpf->add_option("ADDRESS", options.source, "Source address")->required();
  auto* inspect = app.add_subcommand("inspect", "The engine's live objects, their attributes and operations");
  inspect->add_option(
      "PATH", options.inspect.path,
      "Object or collection, as MribSm/routeResolver/mribForPrefix[20.0.0.0/24]; MribSm by default");
  inspect->add_option("--set", options.inspect.sets, "Set an attribute first")
      ->type_name("NAME=VALUE")
      ->allow_extra_args(false);
  inspect->add_option("--call", options.inspect.calls, "Invoke an operation first")
      ->type_name("'NAME ARGUMENT=VALUE ...'")
      ->allow_extra_args(false);
  inspect->add_option("--depth", options.inspect.depth, "Objects within objects that are shown (2)")
      ->type_name("N");
  app.fallthrough();
  rpf->fallthrough();
  inspect->fallthrough();
  app.footer("Exit codes: 0 found, 1 usage, 2 kernel or file error, 3 no RPF route.");
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& e) {
    return app.exit(e) == 0 ? found : usageError;
  }
  try {
    if (options.config.empty() && access(defaultConfig, F_OK) == 0) options.config = defaultConfig;
    return inspect->parsed() ? runInspect(options) : run(options, rpf->parsed());
  } catch (const std::exception& e) {
    std::cerr << "mrib: " << e.what() << '\n';
    return inputError;
  }
}
