#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <string>

#include "Error.h"
#include "Saved.h"
#include "Target.h"

// Reads the bytes as what `ip -j` has saved, the files one after the other with a NUL between them: they are
// refused with the name of the file, or make a mirror that is in sync and has but hops that it knows.

namespace {

using fuzz::must;

constexpr const char* files[] = {"route.json", "addr.json", "link.json", "nexthop.json", "route6.json"};

/// In memory, for this process.
const std::string& folder() {
  static const std::string path = "/dev/shm/mrib-fuzz-" + std::to_string(getpid());
  static const bool made = std::filesystem::create_directories(path);
  must(made || std::filesystem::exists(path));
  static const struct Gone {
    ~Gone() { std::filesystem::remove_all(path); }
  } gone;
  return path;
}

void write(const std::string& file, std::string_view text) {
  const int fd = open(file.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  must(fd >= 0 && ::write(fd, text.data(), text.size()) == std::ssize(text));
  close(fd);
}

void run(fuzz::Bytes bytes) {
  std::string_view text = fuzz::textOf(bytes);
  for (const char* file : files) {
    const std::string_view one = text.substr(0, text.find('\0'));
    text.remove_prefix(std::min(text.size(), one.size() + 1));
    write(folder() + '/' + file, one.empty() ? "[]" : one);
  }
  host::kernel::Mirror mirror({}, 0);
  try {
    host::kernel::readSaved(folder(), mirror);
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
