#include "Sample.h"

#include <fmt/format.h>

#include <algorithm>

namespace host {

std::string sampleConfig(const KernelState& kernel) {
  for (const KernelRoute& route : kernel.routes) {
    const Link* link = route.connected ? kernel.link(route.nextHops.front().link) : nullptr;
    if (!link || route.prefix.length() > 30 || route.prefix.length() == 0) continue;
    const U32 network = route.prefix.address().host();
    const auto isOurs = [&](U32 host) {
      return std::any_of(kernel.addresses.begin(), kernel.addresses.end(),
                         [&](const Address& a) { return a.address.host() == host; });
    };
    const Lumo::IpAddr neighbour = Lumo::IpAddr::fromHost(isOurs(network + 1) ? network + 2 : network + 1);
    const bool plain = link->name.find_first_of(" \t\"\\!#") == std::string::npos;
    std::string text = "! A sample that fits this machine; the prefixes are from RFC 5737.\n";
    text += fmt::format("ip mroute 203.0.113.0/24 {}\n", neighbour.stringValue());
    if (plain) text += fmt::format("ip mroute 203.0.113.0/24 {} 250\n", link->name);
    text += "ip mroute 198.51.100.0/24 203.0.113.7\n";
    return text;
  }
  return "";
}

KernelState sampleCapture() {
  const auto addr = [](const char* text) { return Lumo::IpAddr(text); };
  const auto connected = [](const char* prefix, U32 link) {
    return KernelRoute{Lumo::Prefix(prefix), true, 0, "kernel", 0, {{Lumo::IpAddr(), link}}};
  };
  KernelState state;
  state.links = {{1, "lo", true}, {2, "eth0", true}, {3, "eth1", true}, {4, "eth2", true}};
  state.addresses = {{2, addr("10.0.1.1"), 24, false},
                     {3, addr("10.0.2.1"), 24, false},
                     {4, addr("192.168.50.1"), 24, false}};
  state.routes = {connected("10.0.1.0/24", 2), connected("10.0.2.0/24", 3), connected("192.168.50.0/24", 4),
                  KernelRoute{Lumo::Prefix(), false, 1, "static", 0, {{addr("10.0.1.254"), 2}}},
                  KernelRoute{Lumo::Prefix("172.16.0.0/16"),
                              false,
                              110,
                              "ospf",
                              20,
                              {{addr("10.0.1.2"), 2}, {addr("10.0.2.2"), 3}}}};
  return state;
}

}  // namespace host
