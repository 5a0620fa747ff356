#include "KernelVerdict.h"

#include <fmt/format.h>

#include <algorithm>
#include <cctype>

#include "Escape.h"

namespace host {

using kernel::PacketSettings;
using kernel::RouteType;
using kernel::SourceRoute;
using Cause = KernelVerdict::Cause;

namespace {

constexpr U32 mainTable = 254;
const Lumo::Prefix loopback("127.0.0.0/8");

/// A path of sysctl(8) that any name fits in, as a word of a shell.
std::string settingOf(const std::string& interface, const char* name, int value) {
  const auto isPlain = [](char c) {
    return std::isalnum(static_cast<unsigned char>(c)) != 0 || c == '-' || c == '_';
  };
  if (std::all_of(interface.begin(), interface.end(), isPlain)) {
    return fmt::format(" net.ipv4.conf.{}.{}={}", interface, name, value);
  }
  std::string quoted;
  for (const char c : interface) quoted += c == '\'' ? std::string("'\\''") : std::string(1, c);
  return fmt::format(" 'net/ipv4/conf/{}/{}={}'", quoted, name, value);
}

/// The greater one counts: to loosen takes the interface's, to turn it off takes both.
std::string filterChange(const KernelVerdict& v, U8 wanted) {
  std::string command = "sysctl -w";
  if (wanted == 0 && v.settings->all.rpFilter != 0) command += settingOf("all", "rp_filter", 0);
  if (wanted != 0 || v.settings->own.rpFilter != 0) command += settingOf(v.interface, "rp_filter", wanted);
  return command;
}

/// The rules of Linux' ip_mc_validate_source() and fib_validate_source().
Cause causeOf(const Router& router, const KernelVerdict& v, Lumo::IpAddr source) {
  if (loopback.contains(source)) return Cause::loopback;
  if (!v.route) return Cause::unknown;
  const SourceRoute& route = *v.route;
  const bool isOwn = route.type == RouteType::local;
  if (isOwn && !(v.settings && v.settings->acceptsLocal())) {
    const auto own = router.mirror().topology().ownAddresses(router.mirror().settings().table);
    return own.contains(Lumo::IpGenAddr(source)) ? Cause::ownAddress : Cause::localRoute;
  }
  if (!v.settings) return Cause::unknown;
  if (v.settings->rpFilter() == 0) return Cause::none;
  if (route.type == RouteType::broadcast) return Cause::broadcast;
  if (route.type == RouteType::unspecified) return Cause::noRoute;
  if (route.type != RouteType::unicast && !isOwn) return Cause::unusableRoute;
  if (route.uses(v.link)) return Cause::none;
  if (!router.mirror().topology().hasIpv4(v.link)) return Cause::unnumbered;
  return v.settings->rpFilter() == 1 ? Cause::otherWay : Cause::none;
}

std::string_view nameOf(RouteType type) {
  return type == RouteType::blackhole     ? "a blackhole"
         : type == RouteType::unreachable ? "one that says unreachable"
                                          : "one that prohibits it";
}

std::string whyOf(const Router& router, const KernelVerdict& v, Lumo::IpAddr source) {
  const std::string address = source.stringValue();
  const std::string filter = v.settings ? fmt::format("rp_filter is {}", v.settings->rpFilter()) : "";
  const std::string leaves =
      v.route ? fmt::format("the unicast route to {} leaves by {}{}", address, namesOf(router, v.route->hops),
                            v.route->table == mainTable ? "" : fmt::format(" (table {})", v.route->table))
              : "";
  switch (v.cause) {
    case Cause::none:
      return "";
    case Cause::unknown:
      return "its rp_filter is not known";
    case Cause::loopback:
      return fmt::format("{} is a loopback address", address);
    case Cause::ownAddress:
      return fmt::format("{} is this router's own address", address);
    case Cause::localRoute:
      return fmt::format("a local route ({}) makes {} this router's own", v.route->prefix.stringValue(),
                         address);
    case Cause::broadcast:
      return fmt::format("{} and {} is a broadcast address", filter, address);
    case Cause::otherWay:
      return fmt::format("{} and {}", filter, leaves);
    case Cause::noRoute:
      return fmt::format("{} and there is no unicast route to {}", filter, address);
    case Cause::unusableRoute:
      return fmt::format("{} and the unicast route to {} is {}", filter, address, nameOf(v.route->type));
    case Cause::unnumbered:
      return fmt::format("{}, {} has no IPv4 address, and {}", filter, escaped(v.interface), leaves);
  }
  return "";
}

std::string changeOf(const KernelVerdict& v) {
  switch (v.cause) {
    case Cause::otherWay:
      return filterChange(v, 2);
    case Cause::noRoute:
    case Cause::unusableRoute:
    case Cause::unnumbered:
      return filterChange(v, 0);
    default:
      return "";
  }
}

}  // namespace

std::string namesOf(const Router& router, const std::vector<kernel::Hop>& hops) {
  std::vector<std::string> names;
  for (const kernel::Hop& hop : hops) {
    const kernel::Link* link = router.mirror().topology().link(hop.link);
    std::string name = link ? escaped(link->name) : "an unknown interface";
    if (std::find(names.begin(), names.end(), name) == names.end()) names.push_back(std::move(name));
  }
  return fmt::format("{}", fmt::join(names, " or "));
}

KernelVerdict kernelVerdict(const Router& router, const kernel::ReversePath& kernel, Lumo::IpAddr source,
                            U32 link) {
  KernelVerdict verdict;
  verdict.link = link;
  const kernel::Link* known = router.mirror().topology().link(link);
  if (!known) {
    verdict.why = "there is no such interface";
    return verdict;
  }
  verdict.interface = known->name;
  verdict.settings = kernel.settings(*known);
  verdict.route = kernel.routeTo(source, *known);
  verdict.cause = causeOf(router, verdict, source);
  verdict.why = whyOf(router, verdict, source);
  verdict.change = changeOf(verdict);
  return verdict;
}

}  // namespace host
