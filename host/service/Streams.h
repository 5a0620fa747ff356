#pragma once

#include <deque>
#include <set>

#include "Call.h"
#include "Connection.h"
#include "Documents.h"
#include "Parameters.h"

namespace host {

// Variables, since the simulation's MRIBs would fit into one part.

/// The most elements of one reply, so that no client waits for another's list.
inline std::size_t elementsAReply = 200;
/// The most parts that wait for a client of Monitor, which is told anew with more.
inline std::size_t mostPartsBehind = 2000;
/// The most elements of a list for a client that takes one reply only.
constexpr std::size_t elementsAtOnce = 20000;
/// The most bytes of a single reply: with more, a client would be dropped for what it has not read.
constexpr std::size_t bytesAtOnce = control::Limits{}.queue / 8 * 7;

/// A list in parts: `{HEAD,"NAME":[...]}`. The elements are written when their turn comes; one that is no
/// more writes nothing. What is written after the state has become another one is marked stale.
class ListStream : public control::Stream {
 public:
  using Element = std::function<void(std::size_t, std::string& out)>;
  ListStream(const Router& router, std::string name, std::size_t count, Element element);

  std::optional<control::Reply> next() override { return part(elementsAReply); }
  control::Reply part(std::size_t most);
  std::size_t count() const { return count_; }

 private:
  const Router& router_;
  U64 generation_ = router_.generation();
  U64 revision_ = router_.revision();
  std::string name_;
  std::size_t count_;
  Element element_;
  std::size_t at_ = 0;
};

/// Several lists in parts: `{HEAD,"NAME":[...],"OTHER":[...]}`. The elements are texts.
class ListsStream : public control::Stream {
 public:
  struct List {
    std::string name;
    std::vector<std::string> elements;
  };
  ListsStream(std::string head, std::vector<List> lists);

  std::optional<control::Reply> next() override { return part(elementsAReply); }
  control::Reply part(std::size_t most);
  std::size_t count() const { return count_; }

 private:
  std::string head_;
  std::vector<List> lists_;
  std::size_t count_ = 0;
  std::size_t at_ = 0;  // counted through all lists
};

/// A list in parts, or at once for a client that takes one reply only.
template <class Stream>
control::Answer answerWith(std::unique_ptr<Stream> list, bool more) {
  if (more) return list;
  if (list->count() > elementsAtOnce) return errorReply("org.mrib.TooMany", {{"count", list->count()}});
  return list->part(elementsAtOnce);
}

/// A long text in parts: `{"text":...}`, to be joined.
class TextStream : public control::Stream {
 public:
  explicit TextStream(std::string text) : text_(std::move(text)) {}

  std::optional<control::Reply> next() override;
  control::Reply whole();

 private:
  std::string text_;
  std::size_t at_ = 0;
};

class MonitorStream;

/// What `Monitor` tells its clients: each change is made a text once.
class MonitorLog {
 public:
  struct Part {
    std::shared_ptr<const std::string> text;
    bool complete;
  };

  explicit MonitorLog(const Router& router) : router_(router) {}
  void update(const mrib::Update& update);

 private:
  friend class MonitorStream;

  const Router& router_;
  std::set<MonitorStream*> clients_;
};

/// The MRIB as changes from nothing, then every change. A client that is far behind gets the MRIB anew once
/// it has all of what it was told a part of.
class MonitorStream : public control::Stream {
 public:
  explicit MonitorStream(std::shared_ptr<MonitorLog> log);
  ~MonitorStream() override;

  std::optional<control::Reply> next() override;
  std::size_t size() const { return state_.size(); }
  /// The whole MRIB, and no more.
  control::Reply whole();

 private:
  friend class MonitorLog;

  void restart();
  void endState();
  MonitorLog::Part statePart(std::size_t most);

  std::shared_ptr<MonitorLog> log_;
  std::vector<mrib::Route> state_;
  std::size_t at_ = 0;
  bool inState_ = true;
  bool isBehind_ = false;
  bool isWhole_ = true;  // all of a generation, or nothing, has been told
  U64 generation_ = 0;
  std::deque<MonitorLog::Part> parts_;
};

/// The answers for some addresses and the routes of some prefixes, then each that has changed.
class WatchStream : public control::Stream {
 public:
  /// Makes the text of an answer.
  using AnswerText = std::function<void(const std::string& source, std::string& out)>;
  WatchStream(const Router& router, std::vector<std::string> addresses, std::vector<Lumo::Prefix> prefixes,
              AnswerText answer);

  std::optional<control::Reply> next() override;

 private:
  struct Watched {
    std::string name;
    std::string last;
  };
  std::string routeText(const Watched& watched, const Lumo::Prefix& prefix) const;

  const Router& router_;
  std::vector<Watched> addresses_;
  std::vector<Watched> prefixes_;
  std::vector<Lumo::Prefix> prefixValues_;
  AnswerText answer_;
  U64 revision_ = ~U64{0};
};

/// `"generation":N,"stale":B`
std::string headOf(U64 generation, bool stale);
std::string headOf(const Router& router);

}  // namespace host
