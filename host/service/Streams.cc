#include "Streams.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

namespace host {

using control::Reply;

std::string headOf(U64 generation, bool stale) {
  return fmt::format(R"("generation":{},"stale":{})", generation, stale);
}

std::string headOf(const Router& router) {
  return headOf(router.generation(), router.isStale());
}

// ---- Lists ----

ListStream::ListStream(const Router& router, std::string name, std::size_t count, Element element)
    : router_(router), name_(std::move(name)), count_(count), element_(std::move(element)) {}

Reply ListStream::part(std::size_t most) {
  const std::size_t end = std::min(count_, at_ + most);
  const bool stale = router_.isStale() || router_.revision() != revision_;
  std::string text = fmt::format(R"({{{},"{}":[)", headOf(generation_, stale), name_);
  const std::size_t empty = text.size();
  for (; at_ < end; ++at_) {
    const std::size_t before = text.size();
    if (before != empty) text += ',';
    const std::size_t begin = text.size();
    element_(at_, text);
    if (text.size() == begin) text.resize(before);
  }
  text += "]}";
  return {std::move(text), "", at_ < count_};
}

ListsStream::ListsStream(std::string head, std::vector<List> lists)
    : head_(std::move(head)), lists_(std::move(lists)) {
  for (const List& list : lists_) count_ += list.elements.size();
}

Reply ListsStream::part(std::size_t most) {
  std::string text = '{' + head_;
  const std::size_t end = std::min(count_, at_ + most);
  std::size_t first = 0;  // of the list, counted through all
  for (const List& list : lists_) {
    text += fmt::format(R"(,"{}":[)", list.name);
    const std::size_t last = std::min(end, first + list.elements.size());
    for (bool isFirst = true; at_ >= first && at_ < last; ++at_) {
      if (!std::exchange(isFirst, false)) text += ',';
      text += list.elements[at_ - first];
    }
    text += ']';
    first += list.elements.size();
  }
  return {text += '}', "", at_ < count_};
}

Reply TextStream::whole() {
  return {documents::textOf({{"text", text_}}), "", false};
}

/// Parts end where a line does, so that no character is cut.
std::optional<Reply> TextStream::next() {
  constexpr std::size_t about = 32 << 10;
  const std::size_t newline = at_ + about < text_.size() ? text_.find('\n', at_ + about) : std::string::npos;
  const std::size_t end = newline == std::string::npos ? text_.size() : newline + 1;
  const std::string part = text_.substr(at_, end - at_);
  at_ = end;
  return Reply{documents::textOf({{"text", part}}), "", at_ < text_.size()};
}

// ---- Monitor ----

namespace {

/// One reply of Monitor, with those of `changes` that concern clients.
template <class Changes>
std::string monitorReply(const Router& router, U64 generation, bool restart, bool complete, bool settled,
                         const Changes& changes, KernelFeed::When when = KernelFeed::When::now) {
  std::string text = fmt::format(R"({{"generation":{},"restart":{},"complete":{},"settled":{},"changes":[)",
                                 generation, restart, complete, settled);
  bool isFirst = true;
  for (const mrib::Change& change : changes) {
    if (!std::exchange(isFirst, false)) text += ',';
    documents::appendChange(text, router, change, when);
  }
  return text += "]}";
}

}  // namespace

void MonitorLog::update(const mrib::Update& update) {
  if (clients_.empty()) return;
  for (MonitorStream* client : clients_) {
    if (router_.feed().hasFormer()) client->endState();
    client->isBehind_ |= client->parts_.size() > mostPartsBehind;
  }
  std::vector<mrib::Change> changes;
  for (const mrib::Change& change : update.changes) {
    if (!KernelFeed::isStandIn(change.prefix())) changes.push_back(change);
  }
  for (std::size_t at = 0; at < changes.size(); at += elementsAReply) {
    const std::size_t count = std::min(elementsAReply, changes.size() - at);
    const bool complete = at + count == changes.size();
    const auto text = std::make_shared<const std::string>(monitorReply(
        router_, update.generation, false, complete, update.settled, std::span(changes).subspan(at, count)));
    for (MonitorStream* client : clients_) {
      if (!client->isBehind_) client->parts_.push_back({text, complete});
    }
  }
}

MonitorStream::MonitorStream(std::shared_ptr<MonitorLog> log) : log_(std::move(log)) {
  log_->clients_.insert(this);
  restart();
}

MonitorStream::~MonitorStream() {
  log_->clients_.erase(this);
}

void MonitorStream::restart() {
  parts_.clear();
  state_ = log_->router_.routes();
  at_ = 0;
  inState_ = true;
  isBehind_ = false;
  generation_ = log_->router_.generation();
}

/// What comes next is told in words of another time. Of a large MRIB all the rest would be: it is told anew.
void MonitorStream::endState() {
  isBehind_ |= inState_ && state_.size() - at_ > mostPartsBehind * elementsAReply;
  if (isBehind_) return;
  std::deque<MonitorLog::Part> parts;
  while (inState_) parts.push_back(statePart(elementsAReply));
  parts_.insert(parts_.begin(), parts.begin(), parts.end());
}

/// In the words of its generation, also while the next one is on its way.
MonitorLog::Part MonitorStream::statePart(std::size_t most) {
  std::vector<mrib::Change> changes;
  const std::size_t end = std::min(state_.size(), at_ + most);
  for (; at_ < end; ++at_) changes.push_back({mrib::Route{state_[at_].prefix}, state_[at_]});
  inState_ = at_ < state_.size();
  if (!inState_) state_ = {};
  return {std::make_shared<const std::string>(monitorReply(log_->router_, generation_, true, !inState_, false,
                                                           changes, KernelFeed::When::before)),
          !inState_};
}

Reply MonitorStream::whole() {
  return {*statePart(state_.size()).text, "", false};
}

std::optional<Reply> MonitorStream::next() {
  if (isBehind_ && isWhole_) restart();
  if (inState_) parts_.push_front(statePart(elementsAReply));
  if (parts_.empty()) return std::nullopt;
  const MonitorLog::Part part = std::move(parts_.front());
  parts_.pop_front();
  isWhole_ = part.complete;
  return Reply{*part.text, "", true};
}

// ---- Watch ----

WatchStream::WatchStream(const Router& router, std::vector<std::string> addresses,
                         std::vector<Lumo::Prefix> prefixes, AnswerText answer)
    : router_(router), prefixValues_(std::move(prefixes)), answer_(std::move(answer)) {
  for (std::string& address : addresses) addresses_.push_back({std::move(address), ""});
  for (const Lumo::Prefix& prefix : prefixValues_) prefixes_.push_back({prefix.stringValue(), ""});
}

std::string WatchStream::routeText(const Watched& watched, const Lumo::Prefix& prefix) const {
  const mrib::Route* route = router_.agent().route(prefix);
  std::string text = fmt::format(R"({{"prefix":"{}","route":)", watched.name);
  if (route) {
    documents::appendRoute(text, router_, *route);
  } else {
    text += "null";
  }
  return text + '}';
}

std::optional<Reply> WatchStream::next() {
  if (revision_ == router_.revision()) return std::nullopt;
  const bool isFirst = revision_ == ~U64{0};
  revision_ = router_.revision();
  std::string answers;
  std::string routes;
  const auto take = [&](Watched& watched, std::string now, std::string& list) {
    if (now == watched.last) return;
    if (!list.empty()) list += ',';
    list += now;
    watched.last = std::move(now);
  };
  for (Watched& watched : addresses_) {
    std::string now;
    answer_(watched.name, now);
    take(watched, std::move(now), answers);
  }
  for (std::size_t i = 0; i < prefixes_.size(); ++i) {
    take(prefixes_[i], routeText(prefixes_[i], prefixValues_[i]), routes);
  }
  if (!isFirst && answers.empty() && routes.empty()) return std::nullopt;
  return Reply{fmt::format(R"({{{},"answers":[{}],"routes":[{}]}})", headOf(router_), answers, routes), "",
               true};
}

}  // namespace host
