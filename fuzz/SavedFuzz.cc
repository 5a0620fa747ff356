#include <algorithm>
#include <string>

#include "Error.h"
#include "MemoryFolder.h"
#include "Saved.h"

// Reads the bytes as what `ip -j` has saved, the files one after the other with a NUL between them: they are
// refused with the name of the file, or make a mirror that is in sync and has but hops that it knows.

namespace {

using fuzz::must;

constexpr const char* files[] = {"route.json", "addr.json", "link.json", "nexthop.json", "route6.json"};

void run(fuzz::Bytes bytes) {
  static fuzz::MemoryFolder folder("saved");
  std::string_view text = fuzz::textOf(bytes);
  for (const char* file : files) {
    const std::string_view one = text.substr(0, text.find('\0'));
    text.remove_prefix(std::min(text.size(), one.size() + 1));
    folder.write(file, one.empty() ? "[]" : one);
  }
  host::kernel::Mirror mirror({}, 0);
  try {
    host::kernel::readSaved(folder.path(), mirror);
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
