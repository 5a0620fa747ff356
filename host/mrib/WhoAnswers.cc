#include "WhoAnswers.h"

#include <fmt/format.h>
#include <unistd.h>

#include <cstdio>
#include <cstdlib>
#include <utility>

#include "Call.h"
#include "Client.h"
#include "ConfigReader.h"
#include "Escape.h"
#include "Zan/Trace.h"

namespace host {

namespace {

/// Prints a trace with everything that a terminal might take for a command escaped.
void printTrace(void*, const Zan::TraceMessage& m) {
  std::fprintf(stderr, "%.*s %u %s\n", static_cast<int>(m.handle.size()), m.handle.data(), m.level,
               escaped(m.text).c_str());
}

void traceUpTo(int level) {
  if (level < 0) return;
  for (Zan::TraceHandle* handle : Zan::TraceHandle::handles()) handle->levelsUpToIs(static_cast<U32>(level));
  Zan::traceSinkIs(printTrace, nullptr);
}

/// The option by which this process reads itself, and asks no daemon; or null.
const char* ownOption(const Request& request) {
  const std::pair<const char*, bool> options[] = {{"--once", request.once},
                                                  {"--from", !request.from.empty()},
                                                  {"-c", !request.config.empty()},
                                                  {"--sample", request.sample},
                                                  {"--table", !request.tableName.empty()},
                                                  {"--vrf", !request.vrf.empty()},
                                                  {"--trace", request.traceLevel >= 0},
                                                  {"--set", !request.inspect.sets.empty()},
                                                  {"--call", !request.inspect.calls.empty()}};
  for (const auto& [name, isGiven] : options) {
    if (isGiven) return name;
  }
  return nullptr;
}

std::unique_ptr<OwnReading> once(const Request& request) {
  OnceOptions options{request.from, request.config, std::nullopt, request.sample, request.tableNumber};
  const bool ownMachine = request.from.empty();
  if (options.config.empty() && !options.sample && ownMachine && access(defaultConfig, F_OK) == 0) {
    options.config = defaultConfig;
  }
  return readOnce(options, [&] { traceUpTo(request.traceLevel); });
}

}  // namespace

std::string namedSocket(const Request& request) {
  const char* named = std::getenv("MRIB_SOCKET");
  return !request.socket.empty() ? request.socket : named ? named : "";
}

std::unique_ptr<Backend> daemonFor(const Request& request) {
  const std::string socket = namedSocket(request);
  return daemonAt(socket.empty() ? control::defaultSocket : socket);
}

std::unique_ptr<Backend> onlyDaemonFor(const Request& request) {
  if (const char* option = ownOption(request)) {
    throw UsageError(fmt::format("{}{} is for a daemon (mribd), and with {} none is asked", request.command,
                                 request.at.empty() ? "" : " --at", option));
  }
  return daemonFor(request);
}

std::unique_ptr<Backend> backendFor(const Request& request) {
  if (ownOption(request)) return once(request);
  try {
    return daemonFor(request);
  } catch (const control::NotAnswering&) {
    if (!namedSocket(request).empty()) throw;
    return once(request);
  }
}

}  // namespace host
