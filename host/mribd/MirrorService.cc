#include "MirrorService.h"

#include <fmt/format.h>

#include <nlohmann/json.hpp>

namespace host {

namespace {

constexpr std::size_t changesATurn = 1000;

constexpr const char* description = R"(# The live MRIB of this machine.
interface org.mrib

# How the mirror of the kernel is. Counters count from the start; the duration is of the last reading.
method GetStatus() -> (
  synced: bool,
  stale: bool,
  links: int,
  routes: int,
  overruns: int,
  healed: int,
  resyncs: [string]int,
  lastDurationNanoseconds: int,
  foreign: int
)
)";

std::size_t routesOf(const kernel::Mirror& mirror) {
  return mirror.routes(Lumo::ipv4()).routeCount() + mirror.routes(Lumo::ipv6()).routeCount();
}

nlohmann::json statusOf(const kernel::LiveMirror& live) {
  const kernel::Mirror& mirror = live.mirror();
  const auto counters = mirror.counters();
  auto resyncs = nlohmann::json::object();
  for (std::size_t i = 0; i < kernel::reasonCount; ++i) {
    if (counters.resyncs[i] > 0) resyncs[std::string(nameOf(kernel::Reason(i)))] = counters.resyncs[i];
  }
  return {{"synced", mirror.isSynced()},
          {"stale", mirror.isStale()},
          {"links", mirror.topology().links.all().size()},
          {"routes", routesOf(mirror)},
          {"overruns", counters.overruns},
          {"healed", counters.healed},
          {"resyncs", resyncs},
          {"lastDurationNanoseconds", counters.lastDuration},
          {"foreign", live.foreign()}};
}

}  // namespace

daemon::Nanos MirrorApplication::turn(daemon::Nanos now) {
  const auto until = live_.turn(now);
  return live_.mirror().takeChanges(changesATurn).complete ? until : now;
}

std::string MirrorApplication::status() const {
  const kernel::Mirror& mirror = live_.mirror();
  return fmt::format("{} links, {} routes{}", mirror.topology().links.all().size(), routesOf(mirror),
                     mirror.isStale() ? ", reading the kernel" : "");
}

MirrorHandler::MirrorHandler(const MirrorApplication& application)
    : application_(application), interfaces_{{"org.mrib", description}} {}

std::optional<control::Answer> MirrorHandler::call(std::string_view method, const nlohmann::json&, bool,
                                                   const control::Peer&) {
  if (method != "org.mrib.GetStatus") return std::nullopt;
  return control::Reply{statusOf(application_.live()).dump(), {}, false};
}

}  // namespace host
