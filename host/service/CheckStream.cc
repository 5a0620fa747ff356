#include "CheckStream.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "Documents.h"
#include "Error.h"
#include "Escape.h"
#include "Groups.h"
#include "Parameters.h"
#include "Streams.h"

namespace host {

using control::Reply;
using kernel::MulticastRoute;
using Lumo::IpAddr;

namespace {

constexpr std::size_t routesAStep = 200;
constexpr Nanos restAfterReading = 5;  // times as long, for those who follow: a fifth of the time is theirs

/// Null for any.
std::string addressText(IpAddr address) {
  return address == IpAddr() ? "null" : fmt::format("\"{}\"", address.stringValue());
}

Reply unreadable(const Error& e) {
  return errorReply("org.mrib.NoForwardingCache", {{"why", jsonText(e.what())}});
}

}  // namespace

CheckStream::CheckStream(Subject subject, Question question)
    : subject_(std::move(subject)),
      question_(std::move(question)),
      sampling_(question_.interval > 0 && subject_.cache.isLive()) {}

CheckStream::Id CheckStream::idOf(const MulticastRoute& route) {
  return {route.table, route.source, route.group, route.source == IpAddr() ? route.in : 0};
}

bool CheckStream::concerns(const MulticastRoute& route) const {
  if (!question_.prefix) return true;
  const bool isOfGroups = groups.contains(question_.prefix->address());
  return question_.prefix->contains(isOfGroups ? route.group : route.source);
}

Nanos CheckStream::due() const {
  return telling_ || reading_ ? 0 : due_;
}

// ---- A round: a reading, in steps ----

std::optional<Reply> CheckStream::next() {
  if (!telling_ && !reading_ && subject_.clock() < due_) return std::nullopt;
  try {
    if (!telling_) work();
  } catch (const Error& e) {
    return unreadable(e);
  }
  if (!telling_) return std::nullopt;
  return part(elementsAReply);
}

std::optional<Reply> CheckStream::whole(std::size_t most) {
  try {
    while (!telling_ && count_ <= most) work();
  } catch (const Error& e) {
    return unreadable(e);
  }
  if (count_ > most) return std::nullopt;
  Reply reply = part(most);
  reply.continues = false;
  return reply;
}

void CheckStream::work() {
  if (!reading_) begin();
  const auto& routes = reading_->state().routes;
  if (taken_ == routes.size()) {
    if (!more_) return end();
    more_ = reading_->step();
  }
  const std::size_t until = std::min(routes.size(), taken_ + routesAStep);
  for (; taken_ < until; ++taken_) {
    if (concerns(routes[taken_])) take(routes[taken_]);
  }
}

void CheckStream::begin() {
  reading_ = subject_.cache.read();
  startedAt_ = subject_.clock();
  check_.emplace(subject_.router, subject_.context, reading_->state().interfaces, startedAt_);
  taken_ = count_ = 0;
  more_ = true;
  summary_ = {};
}

void CheckStream::take(const MulticastRoute& route) {
  const Id id = idOf(route);
  if (now_.contains(id)) return;  // entries change places while they are read
  const auto last = before_.extract(id);
  ++count_;
  Seen seen{route.packets, route.wrong};
  if (!sampling_) {
    std::optional<Growth> growth;
    if (!last.empty() && last.mapped().packets <= route.packets && last.mapped().wrong <= route.wrong)
      growth = {route.packets - last.mapped().packets, route.wrong - last.mapped().wrong};
    FlowAnswer answer = check_->judge(route, growth);
    seen.verdict = answer.verdict;
    ++summary_[static_cast<std::size_t>(seen.verdict)];
    const bool isNews = last.empty() || last.mapped().verdict != seen.verdict;
    if (isNews && !question_.brief)
      flows_.try_emplace({seen.verdict, id}, Flow{route, growth, std::move(answer)});
  }
  now_[id] = seen;
}

void CheckStream::end() {
  check_.reset();
  reading_.reset();
  const Nanos took = subject_.clock() - startedAt_;
  due_ = startedAt_ + std::max(question_.interval, told_ ? took * restAfterReading : 0);
  apart_ = comparedWith_ == 0 ? 0 : startedAt_ - comparedWith_;
  comparedWith_ = startedAt_;
  noteGone();
  before_ = std::exchange(now_, {});
  if (std::exchange(sampling_, false)) return;
  telling_ = !std::exchange(told_, true) || !flows_.empty() || question_.brief;
}

void CheckStream::noteGone() {
  for (const auto& [id, seen] : before_) {
    if (seen.verdict == Verdict::gone || question_.brief) continue;
    const MulticastRoute route{id.table, id.source, id.group, true, id.in, {}, seen.packets, 0, seen.wrong};
    flows_.try_emplace({Verdict::gone, id}, Flow{route, std::nullopt, {Verdict::gone, {}, ""}});
  }
}

// ---- Its text ----

Reply CheckStream::part(std::size_t most) {
  std::string text = '{' + head() + R"(,"flows":[)";
  for (std::size_t i = 0; i < most && !flows_.empty(); ++i) {
    if (i > 0) text += ',';
    append(flows_.begin()->second, text);
    flows_.erase(flows_.begin());
  }
  text += "]}";
  telling_ = !flows_.empty();
  return {std::move(text), "", telling_ || (question_.follow && subject_.cache.isLive())};
}

std::string CheckStream::head() const {
  std::string text = headOf(subject_.router) + R"(,"seconds":)" +
                     (apart_ == 0 ? "null" : fmt::format("{:.3f}", static_cast<double>(apart_) / 1e9));
  for (std::size_t i = 0; i < verdictCount; ++i) {
    text += fmt::format(R"({}"{}":{})", i == 0 ? R"(,"summary":{)" : ",", nameOf(static_cast<Verdict>(i)),
                        summary_[i]);
  }
  return text + '}';
}

void CheckStream::append(const Flow& flow, std::string& out) const {
  const MulticastRoute& route = flow.route;
  const auto name = [&](U32 link) {
    const kernel::Link* known = subject_.router.mirror().topology().link(link);
    return known ? documents::textOf(documents::Json(jsonText(known->name))) : "null";
  };
  const auto names = [&](const std::vector<U32>& links) {
    std::vector<std::string> list;
    for (const U32 link : links) list.push_back(name(link));
    std::erase(list, "null");
    return fmt::format("{}", fmt::join(list, ","));
  };
  out += fmt::format(R"({{"verdict":"{}","source":{},"group":{},"table":{},"incoming":{},"expected":[{}],)",
                     nameOf(flow.answer.verdict), addressText(route.source), addressText(route.group),
                     route.table, name(route.in), names(flow.answer.expected));
  out += fmt::format(R"("outgoing":[{}],"packets":{},"bytes":{},"wrongPackets":{},"growth":)",
                     names(route.out), route.packets, route.bytes, route.wrong);
  out += flow.growth
             ? fmt::format(R"({{"packets":{},"wrongPackets":{}}})", flow.growth->packets, flow.growth->wrong)
             : "null";
  out += R"(,"why":)" + documents::textOf(documents::Json(jsonText(flow.answer.why))) + '}';
}

}  // namespace host
