#include <filesystem>
#include <map>

#include "Error.h"
#include "Escape.h"
#include "JsonElements.h"
#include "Mirror.h"
#include "MulticastCache.h"
#include "Names.h"

namespace host::kernel {

namespace {

using Lumo::IpAddr;

class SavedReading : public MulticastReading {
 public:
  SavedReading(std::string path, const Mirror& mirror) : path_(std::move(path)) {
    for (const auto& [index, entry] : mirror.topology().links.all())
      links_.emplace(entry.value.link.name, index);
  }

  bool step() override {
    std::error_code error;
    if (!std::filesystem::exists(path_, error))
      throw Error(escaped(path_) + ": it is not there; \"ip -s -j mroute show table all\" saves it");
    forElements(path_, [&](const JsonObject& element) { readRoute(element); });
    return false;
  }

 private:
  static IpAddr address(const JsonObject& element, const char* key) {
    const auto parsed = IpAddr::parse(element.text(key));
    if (!parsed) element.refuse(key, "an IPv4 address");
    return *parsed;
  }
  U32 link(const JsonObject& element, const char* key) const {
    const auto it = links_.find(element.text(key));
    if (it == links_.end()) element.refuse(key, "the name of a link in link.json");
    return it->second;
  }
  /// Routes of IPv6 may stand in the same file. An entry whose incoming interface is no more is resolved all
  /// the same.
  void readRoute(const JsonObject& element) {
    if (element.text("src").find(':') != std::string::npos) return;
    MulticastRoute route;
    const auto table = tableNumber(element.textOr("table", "default"));
    if (!table) element.refuse("table", "the name or number of a table");
    route.table = *table;
    route.source = address(element, "src");
    route.group = address(element, "dst");
    route.resolved = element.text("state") != "unresolved";
    const std::string in = element.textOr("iif", "unresolved");
    if (in != "unresolved" || links_.contains(in)) route.in = link(element, "iif");
    for (const JsonObject& leg : element.objects("multipath")) route.out.push_back(link(leg, "oif"));
    route.packets = element.count("packets");
    route.bytes = element.count("bytes");
    route.wrong = element.count("wrong_if");
    state_.routes.push_back(std::move(route));
  }

  std::string path_;
  std::map<std::string, U32> links_;
};

}  // namespace

std::unique_ptr<MulticastReading> SavedMulticastCache::read() const {
  return std::make_unique<SavedReading>(folder_ + "/mroute.json", mirror_);
}

}  // namespace host::kernel
