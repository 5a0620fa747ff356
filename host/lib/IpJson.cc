#include "IpJson.h"

#include <fmt/format.h>

#include <fstream>
#include <nlohmann/json.hpp>
#include <unordered_map>

#include "Error.h"
#include "Escape.h"

namespace host {

namespace {

using nlohmann::json;

using LinkIndex = std::unordered_map<std::string, U32>;

std::ifstream open(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  if (!in) throw Error(path + ": can't open it");
  return in;
}

/// The elements of a file that must be a JSON array of objects.
json readArray(const std::string& path) {
  std::ifstream in = open(path);
  json document;
  try {
    document = json::parse(in);
  } catch (const json::exception& e) {
    throw Error(path + ": not JSON: " + e.what());
  }
  if (!document.is_array()) throw Error(path + ": expected an array at the top");
  return document;
}

/// A member of an object, or an error that names file, element and member.
template <class T>
T member(const json& object, const char* name, const std::string& path, std::size_t element) {
  try {
    return object.at(name).get<T>();
  } catch (const json::exception& e) {
    throw Error(fmt::format("{}: element {}: \"{}\": {}", path, element, name, e.what()));
  }
}

void readLinks(const std::string& path, KernelState& state, LinkIndex& index) {
  std::size_t element = 0;
  for (const json& entry : readArray(path)) {
    ++element;
    if (!entry.is_object()) throw Error(fmt::format("{}: element {}: expected an object", path, element));
    Link link{member<U32>(entry, "ifindex", path, element),
              member<std::string>(entry, "ifname", path, element), false};
    const auto flags = member<std::vector<std::string>>(entry, "flags", path, element);
    link.up = std::find(flags.begin(), flags.end(), "UP") != flags.end();
    index.emplace(link.name, link.index);
    state.links.push_back(std::move(link));
  }
}

void readAddresses(const std::string& path, KernelState& state) {
  std::size_t element = 0;
  for (const json& entry : readArray(path)) {
    ++element;
    if (!entry.is_object()) throw Error(fmt::format("{}: element {}: expected an object", path, element));
    if (entry.empty() || !entry.contains("addr_info")) continue;
    const auto link = member<U32>(entry, "ifindex", path, element);
    for (const json& info : member<json>(entry, "addr_info", path, element)) {
      if (!info.is_object() || info.value("family", json()) != "inet") continue;
      const auto text = member<std::string>(info, "local", path, element);
      const auto address = Lumo::IpAddr::parse(text);
      if (!address) {
        throw Error(
            fmt::format("{}: element {}: \"{}\" is not an IPv4 address", path, element, escaped(text)));
      }
      const auto length = member<U32>(info, "prefixlen", path, element);
      if (length > 32) throw Error(fmt::format("{}: element {}: prefix length {}", path, element, length));
      state.addresses.push_back(
          {link, *address, static_cast<U8>(length), info.value("secondary", json()) == true});
    }
  }
}

/// Takes the routes from a stream of parse events: a file of a million routes must not become a document in
/// memory first. A route is an object at depth 2; its next hops are objects at depth 4 under "nexthops".
class RouteReader : public nlohmann::json_sax<json> {
 public:
  RouteReader(std::string path, const LinkIndex& links, KernelState& state)
      : path_(std::move(path)), links_(links), state_(state) {}

  bool null() override { return value(); }
  bool boolean(bool) override { return value(); }
  bool number_integer(number_integer_t) override { return value(); }
  bool number_float(number_float_t, const string_t&) override { return value(); }
  bool binary(binary_t&) override { return value(); }
  bool number_unsigned(number_unsigned_t v) override {
    if (depth_ == 2 && key_ == "metric") metric_ = static_cast<U32>(std::min<U64>(v, ~U32{0}));
    return value();
  }
  bool string(string_t& text) override {
    if (depth_ == 2) routeText(text);
    if (depth_ == 3 && outer_ == "flags") flag(text);
    if (depth_ == 4 && outer_ == "nexthops") hopText(text);
    return value();
  }
  bool key(string_t& name) override {
    if (depth_ == 2) outer_ = name;
    key_ = name;
    return true;
  }
  bool start_array(std::size_t) override {
    ++depth_;
    return true;
  }
  bool end_array() override {
    --depth_;
    return true;
  }
  bool start_object(std::size_t) override {
    if (depth_ == 0) fail("expected an array at the top");
    ++depth_;
    if (depth_ == 2) startRoute();
    if (depth_ == 4 && outer_ == "nexthops") hop_ = {};
    return true;
  }
  bool end_object() override {
    if (depth_ == 4 && outer_ == "nexthops") addHop(hop_);
    if (depth_ == 2) endRoute();
    --depth_;
    return true;
  }
  bool parse_error(std::size_t position, const std::string&, const nlohmann::detail::exception& e) override {
    throw Error(fmt::format("{}: byte {}: not JSON: {}", path_, position, e.what()));
  }

 private:
  struct Hop {
    std::string gateway;
    std::string dev;
    bool foreign = false;  // a gateway of another family
  };

  [[noreturn]] void fail(const std::string& why) const {
    throw Error(fmt::format("{}: element {}: {}", path_, element_, why));
  }
  bool value() {
    if (depth_ == 0) fail("expected an array at the top");
    if (depth_ == 1) {
      ++element_;
      fail("expected an object");
    }
    return true;
  }
  void startRoute() {
    ++element_;
    dst_.clear();
    type_ = "unicast";
    protocol_ = "boot";
    scope_.clear();
    metric_ = 0;
    usable_ = true;
    hop_ = {};
    hops_.clear();
  }
  void routeText(const std::string& text) {
    if (key_ == "dst") dst_ = text;
    if (key_ == "type") type_ = text;
    if (key_ == "protocol") protocol_ = text;
    if (key_ == "scope") scope_ = text;
    hopText(text);
  }
  void hopText(const std::string& text) {
    if (key_ == "gateway") hop_.gateway = text;
    if (key_ == "dev") hop_.dev = text;
    if (key_ == "host") hop_.foreign = true;
  }
  void flag(const std::string& text) {
    if (text == "dead" || text == "linkdown") usable_ = false;
  }
  void addHop(const Hop& hop) {
    const auto link = links_.find(hop.dev);
    if (link == links_.end()) fail(fmt::format("\"dev\": \"{}\" is not in link.json", escaped(hop.dev)));
    Lumo::IpAddr gateway;
    if (!hop.gateway.empty()) {
      const auto parsed = Lumo::IpAddr::parse(hop.gateway);
      if (!parsed) fail(fmt::format("\"gateway\": \"{}\" is not an IPv4 address", escaped(hop.gateway)));
      gateway = *parsed;
    }
    hops_.push_back({gateway, link->second});
  }
  Lumo::Prefix destination() const {
    if (dst_ == "default") return {};
    const auto prefix = Lumo::Prefix::parse(dst_.find('/') == dst_.npos ? dst_ + "/32" : dst_);
    if (!prefix) fail(fmt::format("\"dst\": \"{}\" is not an IPv4 prefix", escaped(dst_)));
    return *prefix;
  }
  void endRoute() {
    if (dst_.empty()) fail("it has no \"dst\"");
    const Lumo::Prefix prefix = destination();
    if (type_ != "unicast") return;
    if (!usable_) return;  // the kernel does not forward over it either
    if (!hop_.dev.empty() && hops_.empty() && !hop_.foreign) addHop(hop_);
    if (hops_.empty()) {
      state_.notes.push_back("route " + prefix.stringValue() + " has no IPv4 next hop: left out");
      return;
    }
    const bool direct =
        std::all_of(hops_.begin(), hops_.end(), [](const NextHop& h) { return h.gateway == Lumo::IpAddr(); });
    const bool connected = scope_ == "link" && direct;
    state_.routes.push_back(
        {prefix, connected, connected ? U8{0} : preferenceOf(protocol_), protocol_, metric_, hops_});
  }

  std::string path_;
  const LinkIndex& links_;
  KernelState& state_;
  std::size_t depth_ = 0;
  std::size_t element_ = 0;
  std::string outer_;  // the key at the route's own level
  std::string key_;
  std::string dst_, type_, protocol_, scope_;
  U32 metric_ = 0;
  bool usable_ = true;
  Hop hop_;
  std::vector<NextHop> hops_;
};

}  // namespace

KernelState readIpJson(const std::string& folder) {
  KernelState state;
  LinkIndex links;
  readLinks(folder + "/link.json", state, links);
  readAddresses(folder + "/addr.json", state);
  const std::string path = folder + "/route.json";
  std::ifstream in = open(path);
  RouteReader reader(path, links, state);
  json::sax_parse(in, &reader);
  normalise(state);
  return state;
}

}  // namespace host
