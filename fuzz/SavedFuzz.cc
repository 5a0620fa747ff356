#include <string>

#include "Error.h"
#include "MemoryFolder.h"
#include "MulticastCache.h"
#include "Saved.h"
#include "SavedReversePath.h"
#include "Target.h"

// Reads the bytes as what `ip -j` has saved, the files one after the other with a NUL between them: they are
// refused with the name of the file, or make a mirror that is in sync and has but hops that it knows. What is
// said of multicast is about links that there are, and by routes that lead to the source.

namespace {

using fuzz::must;

constexpr const char* files[] = {"route.json",  "addr.json",    "link.json",  "nexthop.json",
                                 "route6.json", "netconf.json", "mroute.json"};

void judge(const host::kernel::Mirror& mirror, const std::string& folder) {
  const host::kernel::SavedReversePath reversePath(folder, mirror);
  const auto reading = host::kernel::SavedMulticastCache(folder, mirror).read();
  reading->step();
  for (const host::kernel::MulticastRoute& route : reading->state().routes) {
    must(route.in == 0 || mirror.topology().link(route.in) != nullptr);
    for (const auto& [index, entry] : mirror.topology().links.all()) {
      const auto settings = reversePath.settings(entry.value.link);
      must(!settings || (settings->rpFilter() <= 2 && !settings->acceptsLocal()));
      const auto found = reversePath.routeTo(route.source, entry.value.link);
      must(found && (found->prefix.empty() || found->prefix.v4Prefix().contains(route.source)));
      must(found->type != host::kernel::RouteType::unspecified || !found->uses(index));
    }
  }
}

void run(fuzz::Bytes bytes) {
  static fuzz::MemoryFolder folder;
  std::vector<std::string> parts = fuzz::split(fuzz::textOf(bytes), '\0');
  parts.resize(std::size(files));
  for (std::size_t i = 0; i < parts.size(); ++i) folder.write(files[i], parts[i].empty() ? "[]" : parts[i]);
  host::kernel::Mirror mirror({}, 0);
  try {
    host::kernel::readSaved(folder.path.string(), mirror);
    mirror.takeChanges();
    judge(mirror, folder.path.string());
  } catch (const host::Error& e) {
    must(std::string_view(e.what()).find(".json") != std::string_view::npos);
    return;
  }
  must(mirror.isSynced());
  mirror.routes(Lumo::ipv4()).forEachAnswer([&](const auto& prefix, const host::kernel::Answer& answer) {
    must(!prefix.empty() && answer.kind != host::kernel::Answer::Kind::none);
  });
}

const fuzz::Target target("saved", run);

}  // namespace
