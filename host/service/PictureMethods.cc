#include <fmt/format.h>

#include <map>

#include "Escape.h"
#include "GraphDocument.h"
#include "RibService.h"
#include "StandardErrors.h"

// What a picture of a router is made of.

namespace host {

using control::Answer;
using control::Reply;
using documents::Json;

namespace {

constexpr U32 nodesInAPicture = 200;

/// As ip-address(8) writes it.
std::string textOf(const kernel::Address& address) {
  const bool hasPeer = address.peer != Lumo::IpGenAddr() && address.peer != address.local;
  return address.local.stringValue() + (hasPeer ? " peer " + address.peer.stringValue() : "") + '/' +
         std::to_string(address.length);
}

Json ofLink(const kernel::Link& link, const std::vector<std::string>& addresses) {
  Json json;
  json["name"] = jsonText(link.name);
  json["up"] = link.up;
  json["carrier"] = link.lowerUp;
  json["addresses"] = addresses;
  return json;
}

}  // namespace

Answer RibService::graph(Call& call) {
  const auto prefix = call.parameters.text("prefix");
  const auto source = call.parameters.text("source");
  const U32 most = call.parameters.number("most").value_or(nodesInAPicture);
  call.parameters.done();
  if (most == 0 || most > elementsAtOnce || (prefix && source)) {
    const char* wrong = prefix && source ? "source" : "most";
    throw control::invalidParameter(wrong);
  }
  const Graph whole = prefix   ? graphOf(router_, v4PrefixOf(*prefix))
                      : source ? graphOf(router_, sourceOf(*source))
                               : graphOf(router_);
  return Reply{fmt::format("{{{},{}}}", headOf(router_), documents::membersOf(whole, most))};
}

Answer RibService::listInterfaces(Call& call) {
  call.parameters.done();
  const kernel::Topology& topology = router_.mirror().topology();
  std::map<U32, std::vector<std::string>> addresses;
  for (const auto& [key, entry] : topology.addresses.all()) {
    addresses[entry.value.link].push_back(textOf(entry.value));
  }
  auto list = std::make_shared<std::vector<std::string>>();
  for (const auto& [index, entry] : topology.links.all()) {
    list->push_back(documents::textOf(ofLink(entry.value.link, addresses[index])));
  }
  return answerWith(
      std::make_unique<ListStream>(router_, "interfaces", list->size(),
                                   [list](std::size_t i, std::string& out) { out += (*list)[i]; }),
      call.more);
}

}  // namespace host
