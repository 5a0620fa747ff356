#include "Netns.h"

#include <sched.h>

#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <memory>

#include "Saved.h"

namespace {

int run(const std::string& command) {
  return std::system((command + " >/dev/null 2>&1").c_str());  // NOLINT: a test's own words
}

}  // namespace

Netns::Netns() {
  if (unshare(CLONE_NEWNET) != 0) {
    missing_ = std::string("no network namespace of its own: ") + std::strerror(errno);
    return;
  }
  if (!ip("link add probe0 type veth peer name probe1")) missing_ = "no `ip`, or no veth links";
  ip("link del probe0");
}

bool Netns::ip(const std::string& arguments) const {
  return run("ip " + arguments) == 0;
}

std::string Netns::output(const std::string& arguments) const {
  const std::unique_ptr<FILE, int (*)(FILE*)> pipe(popen(("ip " + arguments + " 2>&1").c_str(), "r"), pclose);
  std::string text;
  char buffer[4096];
  while (const std::size_t n = fread(buffer, 1, sizeof buffer, pipe.get())) text.append(buffer, n);
  return text;
}

void Netns::batch(const std::string& lines) const {
  folder_.write("batch", lines);
  run("ip -force -batch " + (folder_.path / "batch").string());
}

void Netns::set(const std::string& sysctl, int value) const {
  std::ofstream("/proc/sys/net/" + sysctl) << value;
}

void Netns::save(host::kernel::Mirror& mirror, const char* options) const {
  const std::string path = folder_.path.string();
  const std::string ip = std::string("ip ") + options + " -j ";
  const std::string command = ip + "link >" + path + "/link.json; " + ip + "addr >" + path + "/addr.json; " +
                              ip + "nexthop >" + path + "/nexthop.json; " + ip + "route >" + path +
                              "/route.json; " + ip + "-6 route >" + path + "/route6.json";
  if (std::system(command.c_str()) != 0) return;  // NOLINT
  host::kernel::readSaved(path, mirror);
  mirror.takeChanges();
}
