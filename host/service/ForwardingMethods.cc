#include <fmt/format.h>

#include <algorithm>

#include "CheckStream.h"
#include "Error.h"
#include "Escape.h"
#include "RibService.h"

// What is asked of the kernel's multicast forwarding.

namespace host {

using control::Answer;
using control::Reply;
using documents::Json;

namespace {

constexpr Nanos leastInterval = milliseconds(10);

/// Sources or groups: an address is the prefix of itself alone.
Lumo::Prefix flowsOf(const std::string& text) {
  const bool isPrefix = text.find('/') != std::string::npos;
  const auto prefix = Lumo::Prefix::parse(isPrefix ? text : text + "/32");
  if (prefix) return *prefix;
  const std::string_view what = isPrefix ? "prefix" : "address";
  throw errorReply(isPrefix ? "org.mrib.InvalidPrefix" : "org.mrib.InvalidAddress",
                   {{what, jsonText(text)}, {"why", fmt::format("it is not an IPv4 {}", what)}});
}

}  // namespace

const kernel::MulticastCache& RibService::cache() const {
  if (setting_.cache) return *setting_.cache;
  throw errorReply("org.mrib.NoForwardingCache", {{"why", "there is none to read"}});
}

Answer RibService::check(Call& call) {
  CheckStream::Question question;
  if (const auto flows = call.parameters.text("flows")) question.prefix = flowsOf(*flows);
  question.interval = milliseconds(call.parameters.number("interval").value_or(0));
  question.follow = call.parameters.flag("follow");
  question.brief = call.parameters.flag("brief");
  call.parameters.done();
  if (!call.more) question.interval = 0;  // one reply, and at once
  if (question.follow && call.more) question.interval = std::max(question.interval, leastInterval);
  const bool isForFrr = setting_.exported && setting_.exported->table.user == ExportFor::frr;
  const FlowCheck::Context context{setting_.kernel, isForFrr ? &setting_.exported->exporter : nullptr};
  auto stream =
      std::make_unique<CheckStream>(CheckStream::Subject{router_, cache(), context, clock_}, question);
  if (call.more) return stream;
  if (auto reply = stream->whole(elementsAtOnce)) return std::move(*reply);
  return errorReply("org.mrib.TooMany", {{"count", stream->count()}});
}

Answer RibService::listMulticastInterfaces(Call& call) {
  call.parameters.done();
  Json list = Json::array();
  try {
    const auto reading = cache().read();
    while (reading->state().routes.empty() && reading->step()) {
    }
    for (const kernel::MulticastInterface& interface : reading->state().interfaces) {
      const kernel::Link* link = router_.mirror().topology().link(interface.link);
      list.push_back({{"table", interface.table},
                      {"interface", link ? Json(jsonText(link->name)) : Json()},
                      {"packetsIn", interface.packetsIn},
                      {"bytesIn", interface.bytesIn},
                      {"packetsOut", interface.packetsOut},
                      {"bytesOut", interface.bytesOut}});
    }
  } catch (const Error& e) {
    return errorReply("org.mrib.NoForwardingCache", {{"why", jsonText(e.what())}});
  }
  return Reply{documents::textOf({{"interfaces", std::move(list)}})};
}

}  // namespace host
