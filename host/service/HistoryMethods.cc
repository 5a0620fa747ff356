#include <fmt/format.h>

#include <algorithm>
#include <set>

#include "Escape.h"
#include "History.h"
#include "RibService.h"

// What was.

namespace host {

using control::Answer;
using control::Reply;
using documents::Json;

namespace {

Json ofPast(const Lumo::Prefix& prefix, const PastRoute& route) {
  if (route.type == mrib::RouteType::unknown) return nullptr;
  Json json;
  json["prefix"] = prefix.stringValue();
  json["type"] = route.type == mrib::RouteType::connected ? "connected" : "static";
  json["preference"] = route.preference;
  json["vias"] = Json::array();
  for (const PastRoute::Via& via : route.vias) {
    Json one;
    one["nextHop"] = via.neighbor == Lumo::IpAddr() ? Json() : Json(via.neighbor.stringValue());
    one["interface"] = via.interface.empty() ? Json() : Json(jsonText(via.interface));
    json["vias"].push_back(std::move(one));
  }
  return json;
}

Json ofMoment(const Moment& moment) {
  Json json;
  json["time"] = static_cast<double>(moment.wall) / 1e9;
  json["monotonic"] = static_cast<double>(moment.monotonic) / 1e9;
  json["generation"] = moment.generation;
  json["cause"] = moment.cause;
  return json;
}

Json ofChange(const History::Change& change) {
  Json json = ofMoment(change.moment);
  json["prefix"] = change.prefix.stringValue();
  json["before"] = ofPast(change.prefix, change.before);
  json["after"] = ofPast(change.prefix, change.after);
  return json;
}

/// Seconds since 1970, or the end of time.
Nanos wallOf(U64 time) {
  return time > ~Nanos{0} / seconds(1) ? ~Nanos{0} : time * seconds(1);
}

/// A copy, since changes come while a client reads.
std::vector<std::string> textsOf(const History& history, const std::vector<std::size_t>& numbers) {
  std::vector<std::string> texts;
  texts.reserve(numbers.size());
  for (const std::size_t i : numbers) texts.push_back(documents::textOf(ofChange(history[i])));
  return texts;
}

}  // namespace

const History& RibService::kept() const {
  if (const History* history = setting_.history()) return *history;
  throw errorReply("org.mrib.NoHistory", Json::object());
}

Answer RibService::history(Call& call) {
  const auto prefixText = call.parameters.text("prefix");
  const auto address = call.parameters.text("address");
  const auto last = call.parameters.number("last");
  const auto since = call.parameters.largeNumber("since");
  call.parameters.done();
  const History& history = kept();
  const std::size_t first = since.value_or(0) > 0 ? history.firstAfterTime(wallOf(*since) - 1) : 0;
  std::vector<std::size_t> numbers;
  if (address) {
    const Lumo::IpGenAddr source = sourceOf(*address);
    if (source.af() == Lumo::ipv4()) numbers = history.changesFor(source.v4Addr());
    std::erase_if(numbers, [&](std::size_t i) { return i < first; });
  } else {
    const auto prefix = prefixText ? prefixOf(*prefixText) : Lumo::IpGenPrefix();
    for (std::size_t i = first; i < history.size(); ++i) {
      if (!prefixText || prefix == Lumo::IpGenPrefix(history[i].prefix)) numbers.push_back(i);
    }
  }
  if (last && numbers.size() > *last) numbers.erase(numbers.begin(), numbers.end() - *last);
  const std::string head = fmt::format(R"({},"begin":{},"forgotten":{})", headOf(router_),
                                       documents::textOf(ofMoment(history.begin())), history.forgotten());
  return answerWith(std::make_unique<ListsStream>(
                        head, std::vector<ListsStream::List>{{"changes", textsOf(history, numbers)}}),
                    call.more);
}

// ---- Why it was so ----

namespace {

/// What led to the answer for a source at some time, as far as the MRIB tells: its own route, those that its
/// next hops were reached by, and the shorter ones that it hid.
class PastExplainer {
 public:
  PastExplainer(const History& history, std::size_t number) : history_(history), number_(number) {}

  Json explain(Lumo::IpAddr source) {
    const auto matches = history_.matchesBefore(source, number_);
    for (const auto& match : matches) add(&match == &matches.front() ? "answer" : "shorter", source, match);
    if (!matches.empty()) follow(matches.front().route);
    return std::move(steps_);
  }

 private:
  void follow(const PastRoute& route) {
    for (const PastRoute::Via& via : route.vias) {
      if (via.neighbor == Lumo::IpAddr() || !followed_.insert(via.neighbor).second) continue;
      const auto matches = history_.matchesBefore(via.neighbor, number_);
      if (matches.empty()) continue;
      add("through", via.neighbor, matches.front());
      follow(matches.front().route);
    }
  }
  void add(const char* role, Lumo::IpAddr address, const History::PastMatch& match) {
    const auto moment = [&](std::optional<std::size_t> number) {
      return number ? ofMoment(history_[*number].moment) : Json();
    };
    Json step;
    step["role"] = role;
    step["address"] = address.stringValue();
    step["route"] = ofPast(match.prefix, match.route);
    step["came"] = moment(match.came);
    step["went"] = moment(match.went);
    steps_.push_back(std::move(step));
  }

  const History& history_;
  std::size_t number_;
  std::set<Lumo::IpAddr> followed_;
  Json steps_ = Json::array();
};

}  // namespace

Answer RibService::explainPast(Call& call) {
  const std::string text = call.parameters.text("source").value_or("");
  const auto generation = call.parameters.largeNumber("generation");
  const auto time = call.parameters.largeNumber("time");
  call.parameters.done();
  const Lumo::IpGenAddr source = sourceOf(text);
  const History& history = kept();
  const Moment& begin = history.begin();
  const auto unknown = [](std::string why) {
    return errorReply("org.mrib.NotFound", {{"why", std::move(why)}});
  };
  if ((generation && *generation < begin.generation) || (time && *time < begin.wall / seconds(1)))
    throw unknown(fmt::format("the history begins at generation {}", begin.generation));
  if (generation && *generation > router_.generation())
    throw unknown(fmt::format("the present generation is {}", router_.generation()));
  if (time && wallOf(*time) > history.wall()) throw unknown("that is yet to come");
  std::size_t number = history.size();
  if (time) number = history.firstAfterTime(wallOf(*time));
  if (generation) number = history.firstAfterGeneration(*generation);
  Json json;
  json["generation"] = router_.generation();
  json["stale"] = router_.isStale();
  json["source"] = source.stringValue();
  json["since"] = ofMoment(number == 0 ? begin : history[number - 1].moment);
  json["until"] = number == history.size() ? Json() : ofMoment(history[number].moment);
  const bool is4 = source.af() == Lumo::ipv4();
  json["steps"] = is4 ? PastExplainer(history, number).explain(source.v4Addr()) : Json::array();
  return Reply{documents::textOf(json)};
}

}  // namespace host
