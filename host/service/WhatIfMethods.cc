#include <algorithm>

#include "Check.h"
#include "Error.h"
#include "Escape.h"
#include "RibService.h"
#include "WhatIf.h"

// What would be.

namespace host {

using control::Answer;
using control::Reply;
using documents::Json;

namespace {

constexpr std::size_t routesAtOnce = 200000;  // looked at for all links in one reply: a quarter of a second
constexpr std::size_t prefixesNamed = 10;     // of those that depend on a link

void appendRouteOrNull(std::string& out, const Router& router, const mrib::Route* route) {
  if (!route) {
    out += "null";
  } else {
    documents::appendRoute(out, router, *route);
  }
}

void appendUnicastOrNull(std::string& out, const Router& router, const Lumo::Prefix& prefix) {
  const kernel::Answer& answer = router.mirror().answer(prefix);
  if (answer.kind == kernel::Answer::Kind::none) {
    out += "null";
  } else {
    documents::appendUnicast(out, router, prefix, answer);
  }
}

/// With what `before` and `after` append for what is and what would be.
template <class Before, class After>
std::string changeText(const std::string& head, Before before, After after) {
  std::string text = head + R"("before":)";
  before(text);
  text += R"(,"after":)";
  after(text);
  return text += '}';
}

std::string_view nameOf(WhatIf::FlowChange::Verdict verdict) {
  constexpr std::string_view names[] = {"dies", "moves", "recovers"};
  return names[static_cast<std::size_t>(verdict)];
}

std::string textOf(const Router& before, const Router& after, const WhatIf::FlowChange& change) {
  const kernel::Link* link = before.mirror().topology().link(change.flow.link);
  Json head;
  head["source"] = change.flow.source.stringValue();
  head["group"] = change.flow.group.stringValue();
  head["interface"] = link ? Json(jsonText(link->name)) : Json();
  head["verdict"] = nameOf(change.verdict);
  std::string text = documents::textOf(head);
  text.back() = ',';
  return changeText(
      text, [&](std::string& out) { documents::appendAnswered(out, before, change.before); },
      [&](std::string& out) { documents::appendAnswered(out, after, change.after); });
}

std::vector<std::string> textsOf(const Router& router, const std::vector<mrib::Unresolved>& unresolved) {
  const Why why(router);
  std::vector<std::string> texts;
  texts.reserve(unresolved.size());
  for (const mrib::Unresolved& u : unresolved) {
    texts.push_back(documents::textOf(documents::ofUnresolved(router.configuration(), why, u)));
  }
  return texts;
}

std::unique_ptr<ListsStream> answerOf(const Router& before, const WhatIf& answer) {
  const auto headFor = [](const Lumo::Prefix& prefix) {
    return R"({"prefix":")" + prefix.stringValue() + "\",";
  };
  std::vector<std::string> changes;
  for (const auto& change : answer.changes()) {
    changes.push_back(changeText(
        headFor((change.after ? change.after : change.before)->prefix),
        [&](std::string& out) { appendRouteOrNull(out, before, change.before); },
        [&](std::string& out) { appendRouteOrNull(out, answer.router(), change.after); }));
  }
  std::vector<std::string> unicast;
  for (const Lumo::Prefix& prefix : answer.unicast()) {
    unicast.push_back(changeText(
        headFor(prefix), [&](std::string& out) { appendUnicastOrNull(out, before, prefix); },
        [&](std::string& out) { appendUnicastOrNull(out, answer.router(), prefix); }));
  }
  std::vector<std::string> flows;
  for (const auto& change : answer.flows()) flows.push_back(textOf(before, answer.router(), change));
  std::vector<ListsStream::List> lists{{"changes", std::move(changes)},
                                       {"unresolved", textsOf(answer.router(), answer.unresolved())},
                                       {"resolved", textsOf(before, answer.resolved())},
                                       {"flows", std::move(flows)},
                                       {"unicast", std::move(unicast)}};
  const std::string head = headOf(before) + R"(,"unicastLeft":)" + std::to_string(answer.unicastLeft());
  return std::make_unique<ListsStream>(head, std::move(lists));
}

/// The flows that the kernel forwards, each with one source; none where it cannot be asked.
std::vector<Flow> flowsIn(const kernel::MulticastCache& cache, U32 table) {
  std::vector<Flow> flows;
  try {
    const auto reading = cache.read();
    while (reading->step()) {
    }
    for (const kernel::MulticastRoute& route : reading->state().routes) {
      const bool isFlow = route.resolved && route.in != 0 && route.source != Lumo::IpAddr();
      if (isFlow && route.table == table) {
        flows.push_back({route.source, route.group, route.in});
      }
    }
  } catch (const Error&) {
    flows.clear();
  }
  return flows;
}

Json dependentsOf(const std::string& link, const WhatIf& answer) {
  using Verdict = WhatIf::FlowChange::Verdict;
  const auto flows = [&](Verdict verdict) {
    return std::count_if(answer.flows().begin(), answer.flows().end(),
                         [&](const auto& flow) { return flow.verdict == verdict; });
  };
  const auto lost = std::count_if(answer.changes().begin(), answer.changes().end(),
                                  [](const auto& change) { return change.after == nullptr; });
  Json json;
  json["interface"] = jsonText(link);
  json["flowsDying"] = flows(Verdict::dies);
  json["flowsMoving"] = flows(Verdict::moves);
  json["lost"] = lost;
  json["changed"] = static_cast<std::ptrdiff_t>(answer.changes().size()) - lost;
  json["unresolved"] = answer.unresolved().size();
  json["unicast"] = answer.unicast().size() + answer.unicastLeft();
  json["prefixes"] = Json::array();
  for (const auto& change : answer.changes()) {
    if (json["prefixes"].size() == prefixesNamed) break;
    json["prefixes"].push_back((change.after ? change.after : change.before)->prefix.stringValue());
  }
  return json;
}

/// One link after the other, so that a daemon can do something else between two.
class LinksStream : public control::Stream {
 public:
  LinksStream(const Router& router, WhatIf::Setting setting) : router_(router), setting_(std::move(setting)) {
    for (const auto& [index, entry] : router.mirror().topology().links.all()) {
      if (entry.value.link.up) links_.push_back(entry.value.link.name);
    }
  }

  std::optional<Reply> next() override { return part(1); }
  bool isSlow() const override { return true; }
  std::size_t count() const { return links_.size(); }
  Reply whole() { return part(links_.size()); }

 private:
  Reply part(std::size_t most) {
    std::string elements;
    for (const std::size_t end = std::min(links_.size(), at_ + most); at_ < end;) appendNext(elements);
    return {'{' + headOf(router_) + R"(,"links":[)" + elements + "]}", "", at_ < links_.size()};
  }
  /// A link that has gone meanwhile is left out.
  void appendNext(std::string& elements) {
    const std::string& link = links_[at_++];
    try {
      const std::string text = documents::textOf(dependentsOf(link, WhatIf(router_, link, setting_)));
      elements += (elements.empty() ? "" : ",") + text;
    } catch (const Error&) {
      return;
    }
  }

  const Router& router_;
  WhatIf::Setting setting_;
  std::vector<std::string> links_;
  std::size_t at_ = 0;
};

}  // namespace

WhatIf::Setting RibService::whatIfSetting() const {
  const U32 table = multicastTableOf(router_.mirror());
  return {setting_.linkSwitch, setting_.cache ? flowsIn(*setting_.cache, table) : std::vector<Flow>()};
}

Answer RibService::whatIf(Call& call) {
  const std::vector<std::string> changes = call.parameters.texts("changes");
  call.parameters.done();
  const WhatIf::Setting setting = whatIfSetting();
  try {
    const WhatIf answer(router_, changes, setting);
    return answerWith(answerOf(router_, answer), call.more);
  } catch (const Error& e) {
    throw errorReply("org.mrib.InvalidChange", {{"why", jsonText(e.what())}});
  }
}

Answer RibService::rankLinks(Call& call) {
  call.parameters.done();
  auto stream = std::make_unique<LinksStream>(router_, whatIfSetting());
  if (call.more) return stream;
  if (stream->count() * router_.routeCount() > routesAtOnce)
    return errorReply("org.mrib.TooMany", {{"count", stream->count()}});
  return stream->whole();
}

}  // namespace host
