#include "SavedReversePath.h"

#include <filesystem>

#include "JsonElements.h"

namespace host::kernel {

namespace {

U8 filterNumber(const JsonObject& element) {
  const std::string name = element.textOr("rp_filter", "off");
  if (name != "off" && name != "strict" && name != "loose") {
    element.refuse("rp_filter", "\"off\", \"strict\" or \"loose\"");
  }
  return name == "off" ? U8{0} : name == "strict" ? U8{1} : U8{2};
}

RouteType typeOf(Answer::Kind kind) {
  switch (kind) {
    case Answer::Kind::attached:
    case Answer::Kind::gateway:
      return RouteType::unicast;
    case Answer::Kind::local:
      return RouteType::local;
    case Answer::Kind::blackhole:
      return RouteType::blackhole;
    case Answer::Kind::unreachable:
      return RouteType::unreachable;
    case Answer::Kind::prohibit:
      return RouteType::prohibit;
    default:
      return RouteType::unspecified;
  }
}

}  // namespace

SavedReversePath::SavedReversePath(const std::string& folder, const Mirror& mirror) : mirror_(mirror) {
  const std::string path = folder + "/netconf.json";
  std::error_code error;
  if (!std::filesystem::exists(path, error)) return;
  forElements(path, [&](const JsonObject& element) {
    if (element.textOr("family", "inet") != "inet" || !element.has("interface")) return;
    settings_[element.text("interface")] = {filterNumber(element), element.flag("mc_forwarding"), false};
  });
}

std::optional<PacketSettings> SavedReversePath::settings(const Link& link) const {
  const auto own = settings_.find(link.name);
  const auto all = settings_.find("all");
  if (own == settings_.end() || all == settings_.end()) return std::nullopt;
  return PacketSettings{own->second, all->second};
}

bool SavedReversePath::isBroadcast(Lumo::IpAddr address) const {
  for (const auto& [key, entry] : mirror_.topology().addresses.all()) {
    const Address& a = entry.value;
    if (a.local.af() != Lumo::ipv4() || a.peer != a.local || a.length > 30) continue;
    const U32 ones = ~Lumo::Prefix::mask(a.length);
    if (address.host() == (a.local.v4Addr().host() | ones)) return true;
  }
  return false;
}

std::optional<SourceRoute> SavedReversePath::routeTo(Lumo::IpAddr source, const Link&) const {
  if (isBroadcast(source)) return SourceRoute{RouteType::broadcast, {}, 0, {}};
  const IpGenPrefix prefix = mirror_.longestMatch(IpGenAddr(source));
  if (prefix.empty()) return SourceRoute{};
  const Answer& answer = mirror_.answer(prefix);
  return SourceRoute{typeOf(answer.kind), prefix, mirror_.settings().table, answer.hops};
}

}  // namespace host::kernel
