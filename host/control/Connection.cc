#include "Connection.h"

#include <fmt/format.h>

#include <algorithm>

namespace host::control {

void Connection::received(std::string_view bytes) {
  if (!hangUp_) input_.buffer().append(bytes);
}

bool Connection::wantsInput(const Limits& limits) const {
  return !finished_ && !hangUp_ && input_.size() <= limits.request;
}

void Connection::sent(std::size_t size, Nanos now) {
  output_.pop(size);
  if (size > 0 || output_.empty()) unread_.reset();
  if (!output_.empty() && !unread_) unread_ = now;
}

void Connection::serve(Service& service, const Limits& limits, Nanos now) {
  idle_ = false;
  for (U32 i = 0; i < limits.batch && !idle_; ++i) {
    idle_ = !step(service, limits);
    if (stream_ && stream_->isSlow()) break;
  }
  note(limits, now);
}

/// One reply more, or a request less; false when neither is possible.
bool Connection::step(Service& service, const Limits& limits) {
  if (hangUp_ || !hasRoom(limits)) return false;
  if (stream_) return pull();
  const std::string_view bytes = input_.bytes();
  const std::size_t end = bytes.find('\0', searched_);
  searched_ = std::min(end, bytes.size());
  if (searched_ > limits.request) {
    const std::string why = fmt::format("it is longer than {} bytes", limits.request);
    hangUp(invalidParameter("the request: " + why), "no request: " + why);
    return true;
  }
  if (end == std::string_view::npos) return false;
  answer(service, bytes.substr(0, end), limits);
  searched_ = 0;
  input_.pop(end + 1);
  unfinished_.reset();
  return true;
}

bool Connection::pull() {
  const auto next = stream_->next();
  if (!next) return false;
  reply(*next);
  if (!next->continues || !next->error.empty()) stream_.reset();
  return true;
}

void Connection::answer(Service& service, std::string_view message, const Limits& limits) {
  auto parsed = parseRequest(message, limits.nesting);
  if (const auto* refusal = std::get_if<Refusal>(&parsed)) {
    if (!refusal->confused.empty()) return hangUp(refusal->reply, "no request: " + refusal->confused);
    if (!refusal->oneway) reply(refusal->reply);
    return;
  }
  const Request& request = std::get<Request>(parsed);
  Answer answer = service.call(request, peer_);
  if (request.oneway) return;
  if (const auto* single = std::get_if<Reply>(&answer)) return reply(*single);
  if (!request.more) return reply(expectedMore());
  stream_ = std::move(std::get<std::unique_ptr<Stream>>(answer));
}

/// Says what is wrong, and nothing after that.
void Connection::hangUp(const Reply& last, std::string why) {
  reply(last);
  hangUp_ = std::move(why);
}

/// Starts and stops the clocks that run against the client.
void Connection::note(const Limits& limits, Nanos now) {
  if (output_.empty()) unread_.reset();
  if (!output_.empty() && !unread_) unread_ = now;
  const bool half = idle_ && !stream_ && !hangUp_ && hasRoom(limits) && !input_.empty();
  if (!half) unfinished_.reset();
  if (half && !unfinished_) unfinished_ = now;
}

Nanos Connection::deadline(const Limits& limits, Nanos now) const {
  if (!idle_) return now;
  Nanos at = stream_ && hasRoom(limits) ? stream_->due() : ~Nanos{0};
  if (unread_) at = std::min(at, *unread_ + limits.reading);
  if (unfinished_) at = std::min(at, *unfinished_ + limits.finishing);
  return at;
}

std::optional<std::string> Connection::end(const Limits& limits, Nanos now) const {
  constexpr Nanos second = 1'000'000'000;
  if (output_.size() > limits.queue)
    return fmt::format("more than {} bytes that it has not read", limits.queue);
  if (unread_ && now >= *unread_ + limits.reading) {
    return fmt::format("nothing read for {} s", limits.reading / second);
  }
  if (unfinished_ && now >= *unfinished_ + limits.finishing) {
    return fmt::format("half a request for {} s", limits.finishing / second);
  }
  if (!output_.empty()) return std::nullopt;
  if (hangUp_) return hangUp_;
  if (finished_ && idle_ && !stream_) return std::string();
  return std::nullopt;
}

}  // namespace host::control
