#include "Saved.h"

#include <fmt/format.h>
#include <linux/rtnetlink.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <unordered_map>

#include "Error.h"
#include "Escape.h"
#include "JsonElements.h"
#include "Names.h"

namespace host::kernel {

namespace {

constexpr U32 most32 = ~U32{0};
constexpr U32 mostIndex = 0x7FFFFFFF;
constexpr std::size_t longestName = 15;

bool contains(const std::vector<std::string>& texts, const char* text) {
  return std::find(texts.begin(), texts.end(), text) != texts.end();
}

/// An address in text, of either family; nothing when it is none.
std::optional<IpGenAddr> parseAddress(const std::string& text) {
  if (const auto v4 = Lumo::IpAddr::parse(text)) return IpGenAddr(*v4);
  if (const auto v6 = Lumo::Ip6Addr::parse(text)) return IpGenAddr(*v6);
  return std::nullopt;
}

class SavedReader {
 public:
  SavedReader(std::string folder, Mirror& mirror) : folder_(std::move(folder)), mirror_(mirror) {}

  void read() {
    for (Mirror::Action action; (action = mirror_.next(0)).kind != Mirror::Action::Kind::wait;) {
      if (action.kind == Mirror::Action::Kind::dump) answer(action.dump, action.sequence);
    }
  }

 private:
  std::string path(const char* file) const { return folder_ + '/' + file; }
  bool isThere(const char* file) const {
    std::error_code error;
    return std::filesystem::exists(path(file), error);
  }
  template <class Change>
  void give(Change change) {
    mirror_.answered({sequence_, 0, std::move(change)}, 0);
  }

  void answer(Dump dump, U32 sequence);
  void readLinks();
  Link linkOf(const JsonObject& element);
  void readAddresses(const JsonObject& element);
  Address addressOf(const JsonObject& info) const;
  void readNextHop(const JsonObject& element);
  void readRoutes(bool v6);
  void readRoute(const JsonObject& element, bool v6, bool fileOfV6);

  template <class T>
  T named(const JsonObject& element, const char* key, const char* absent,
          std::optional<T> (*parse)(std::string_view), const char* what) const {
    const auto value = parse(element.textOr(key, absent));
    if (!value) element.refuse(key, what);
    return *value;
  }
  U32 linkNamed(const JsonObject& element, const char* key) const;
  IpGenAddr addressIn(const JsonObject& element, const char* key) const;
  Hop hopOf(const JsonObject& element) const;
  std::vector<Hop> hopsOf(const JsonObject& element) const;
  IpGenPrefix prefixOf(const JsonObject& element, bool fileOfV6) const;

  std::string folder_;
  Mirror& mirror_;
  U32 sequence_ = 0;
  bool knowsNextHops_ = false;
  std::unordered_map<std::string, U32> linkByName_;
  std::unordered_map<U32, std::string> linkByIndex_;
};

void SavedReader::answer(Dump dump, U32 sequence) {
  sequence_ = sequence;
  DumpEnd end;
  if (dump == Dump::links) readLinks();
  if (dump == Dump::addresses) forElements(path("addr.json"), [&](const auto& e) { readAddresses(e); });
  if (dump == Dump::nextHops) {
    knowsNextHops_ = isThere("nexthop.json");
    if (knowsNextHops_) forElements(path("nexthop.json"), [&](const auto& e) { readNextHop(e); });
    if (!knowsNextHops_) end.error = -EOPNOTSUPP;
  }
  if (dump == Dump::routes4 || dump == Dump::routes6) readRoutes(dump == Dump::routes6);
  give(end);
}

U32 SavedReader::linkNamed(const JsonObject& element, const char* key) const {
  const auto it = linkByName_.find(element.text(key));
  if (it == linkByName_.end()) element.refuse(key, "the name of a link in link.json");
  return it->second;
}

IpGenAddr SavedReader::addressIn(const JsonObject& element, const char* key) const {
  const auto address = parseAddress(element.text(key));
  if (!address) element.refuse(key, "an address");
  return *address;
}

// Links

Link SavedReader::linkOf(const JsonObject& element) {
  Link link;
  link.index = element.number("ifindex", 1, mostIndex);
  link.name = element.text("ifname");
  if (link.name.empty() || link.name.size() > longestName) {
    element.refuse("ifname", fmt::format("a name of 1 to {} bytes", longestName));
  }
  if (!element.has("flags")) element.refuse("flags", "a list of texts");
  const auto flags = element.texts("flags");
  link.up = contains(flags, "UP");
  link.lowerUp = link.up && contains(flags, "LOWER_UP");
  link.running = link.up && !contains(flags, "NO-CARRIER");
  link.loopback = contains(flags, "LOOPBACK");
  link.operState = named(element, "operstate", "UNKNOWN", operStateNumber, "an operational state");
  link.alternativeNames = element.texts("altnames");
  if (const auto info = element.object("linkinfo")) {
    const std::string kind = info->textOr("info_kind", "");
    const auto data = info->object("info_data");
    if (kind == "vrf" && data) link.vrfTable = data->numberOr("table", 0, 0, most32);
    link.follows = followsOf(kind);
  }
  if (!linkByIndex_.emplace(link.index, link.name).second) element.refuse("ifindex", "an index of its own");
  if (!linkByName_.emplace(link.name, link.index).second) element.refuse("ifname", "a name of its own");
  return link;
}

/// A master or a lower link may stand behind its links, so the file is read once more for them.
void SavedReader::readLinks() {
  std::vector<Link> links;
  forElements(path("link.json"), [&](const JsonObject& element) { links.push_back(linkOf(element)); });
  std::size_t at = 0;
  forElements(path("link.json"), [&](const JsonObject& element) {
    if (at == links.size()) element.refuse("the file changes while it is read");
    Link& link = links[at++];
    if (element.has("master")) link.master = linkNamed(element, "master");
    const bool hasLower = link.follows != Link::Follows::nothing && element.has("link");
    if (hasLower) link.lower = linkNamed(element, "link");
  });
  for (Link& link : links) give(LinkChange{std::move(link), false});
}

// Addresses

void SavedReader::readAddresses(const JsonObject& element) {
  if (element.empty() || !element.has("addr_info")) return;
  const U32 link = element.number("ifindex", 1, mostIndex);
  if (!linkByIndex_.contains(link)) element.refuse("ifindex", "the index of a link in link.json");
  for (const JsonObject& info : element.objects("addr_info")) {
    const std::string family = info.textOr("family", "");
    if (family != "inet" && family != "inet6") continue;
    Address address = addressOf(info);
    address.link = link;
    give(AddressChange{address, false});
  }
}

Address SavedReader::addressOf(const JsonObject& info) const {
  const bool v4 = info.text("family") == "inet";
  const auto family = v4 ? Lumo::ipv4() : Lumo::ipv6();
  Address address;
  address.local = addressIn(info, "local");
  address.peer = info.has("address") ? addressIn(info, "address") : address.local;
  if (address.local.af() != family) info.refuse("local", "an address of its family");
  if (address.peer.af() != family) info.refuse("address", "an address of its family");
  address.length = static_cast<U8>(info.number("prefixlen", 0, v4 ? 32 : 128));
  address.scope = named(info, "scope", "global", scopeNumber, "a scope");
  address.secondary = v4 && info.flag("secondary");
  address.noPrefixRoute = info.flag("noprefixroute");
  address.metric = info.numberOr("metric", 0, 0, most32);
  address.tentative = (info.flag("tentative") || info.flag("dadfailed")) && !info.flag("optimistic");
  return address;
}

// Next hops and routes

Hop SavedReader::hopOf(const JsonObject& element) const {
  Hop hop;
  hop.link = linkNamed(element, "dev");
  if (element.has("gateway")) hop.gateway = addressIn(element, "gateway");
  if (const auto via = element.object("via")) hop.gateway = addressIn(*via, "host");
  const auto flags = element.texts("flags");
  if (contains(flags, "dead")) hop.flags |= Hop::dead;
  if (contains(flags, "linkdown")) hop.flags |= Hop::linkdown;
  if (contains(flags, "onlink")) hop.flags |= Hop::onlink;
  return hop;
}

std::vector<Hop> SavedReader::hopsOf(const JsonObject& element) const {
  std::vector<Hop> hops;
  for (const JsonObject& leg : element.objects("nexthops")) hops.push_back(hopOf(leg));
  if (hops.empty() && element.has("dev")) hops.push_back(hopOf(element));
  return hops;
}

void SavedReader::readNextHop(const JsonObject& element) {
  if (element.has("fdb")) return;
  NextHop result;
  result.id = element.number("id", 1, most32);
  result.blackhole = element.has("blackhole");
  for (const JsonObject& member : element.objects("group")) {
    result.group.push_back(member.number("id", 1, most32));
  }
  if (element.has("dev")) result.hop = hopOf(element);
  if (!element.has("dev") && !result.blackhole && result.group.empty()) {
    element.refuse("expected \"dev\", \"group\" or \"blackhole\"");
  }
  give(NextHopChange{std::move(result), false});
}

/// "default" does not say its family, but routes of IPv6 have a preference ("pref").
IpGenPrefix SavedReader::prefixOf(const JsonObject& element, bool fileOfV6) const {
  const std::string text = element.text("dst");
  if (text == "default" && (fileOfV6 || element.has("pref"))) return {Lumo::Ip6Prefix()};
  if (text == "default") return {Lumo::Prefix()};
  const bool isHost = text.find('/') == text.npos;
  if (text.find(':') == text.npos) {
    if (const auto prefix = Lumo::Prefix::parse(isHost ? text + "/32" : text)) return {*prefix};
  } else if (const auto prefix = Lumo::Ip6Prefix::parse(isHost ? text + "/128" : text)) {
    return {*prefix};
  }
  element.refuse("dst", "a prefix");
}

/// Routes of both families may stand in one file.
void SavedReader::readRoutes(bool v6) {
  forElements(path("route.json"), [&](const JsonObject& e) { readRoute(e, v6, false); });
  if (!v6 || !isThere("route6.json")) return;
  forElements(path("route6.json"), [&](const JsonObject& e) { readRoute(e, v6, true); });
}

/// A protocol that only the other machine has a name for is taken for one without a name.
void SavedReader::readRoute(const JsonObject& element, bool v6, bool fileOfV6) {
  Route route;
  route.prefix = prefixOf(element, fileOfV6);
  if ((route.prefix.af() == Lumo::ipv6()) != v6 || element.has("from")) return;
  route.table = mirror_.settings().table;
  if (element.has("table") && tableNumber(element.text("table")) != route.table) return;
  route.type = named(element, "type", "unicast", routeTypeNumber, "a type of route");
  route.scope = named(element, "scope", "global", scopeNumber, "a scope");
  route.tos = named(element, "tos", "0", tosNumber, "a TOS");
  route.protocol = protocolNumber(element.textOr("protocol", "boot")).value_or(RTPROT_UNSPEC);
  route.metric = element.numberOr("metric", 0, 0, most32);
  route.nextHop = element.numberOr("nhid", 0, 1, most32);
  if (element.has("prefsrc")) route.source = addressIn(element, "prefsrc");
  route.hops = hopsOf(element);
  if (v6) std::sort(route.hops.begin(), route.hops.end());
  const bool needsHop = route.type == RouteType::unicast && route.hops.empty();
  if (needsHop && route.nextHop == 0) element.refuse("expected \"dev\", \"nexthops\" or \"nhid\"");
  if (needsHop && !knowsNextHops_) element.refuse("nhid", "nexthop.json beside it (ip -j nexthop)");
  give(RouteChange{std::move(route), false});
}

}  // namespace

void readSaved(const std::string& folder, Mirror& mirror) {
  SavedReader(folder, mirror).read();
}

}  // namespace host::kernel
