#pragma once

#include <map>
#include <unordered_map>

#include "Call.h"
#include "Check.h"

namespace host {

/// The kernel's multicast forwarding against the MRIB, the worst first. It reads the kernel twice, some time
/// apart, in small steps, and compares; then, where that is asked for, again and again, and tells what has
/// become of a flow.
class CheckStream : public control::Stream {
 public:
  struct Subject {
    const Router& router;
    const kernel::MulticastCache& cache;
    FlowCheck::Context context;
    Router::Clock clock;
  };
  struct Question {
    std::optional<Lumo::Prefix> prefix{};  ///< of sources or groups
    Nanos interval = 0;                    ///< between two readings; 0: there is one, and no growth
    bool follow = false;
    bool brief = false;  ///< the summary only
  };

  CheckStream(Subject subject, Question question);

  std::optional<control::Reply> next() override;
  Nanos due() const override;
  /// The first answer in one reply; nothing when it has more flows than `most`.
  std::optional<control::Reply> whole(std::size_t most);
  std::size_t count() const { return count_; }

 private:
  /// What tells entries apart. Of those for any source there may be one for each incoming interface.
  struct Id {
    U32 table = 0;
    Lumo::IpAddr source;
    Lumo::IpAddr group;
    U32 in = 0;
    friend bool operator==(const Id&, const Id&) = default;
    friend auto operator<=>(const Id&, const Id&) = default;
  };
  struct IdHash {
    std::size_t operator()(const Id& id) const {
      return Zan::mix(Zan::mix(id.source.hash(), id.group.hash()), U64{id.table} << 32 | id.in);
    }
  };
  struct Flow {
    kernel::MulticastRoute route;
    std::optional<Growth> growth;
    FlowAnswer answer;
  };
  struct Seen {
    U64 packets = 0;
    U64 wrong = 0;
    Verdict verdict = Verdict::gone;  ///< as told
  };
  using SeenFlows = std::unordered_map<Id, Seen, IdHash>;

  static Id idOf(const kernel::MulticastRoute& route);
  bool concerns(const kernel::MulticastRoute& route) const;
  void work();
  void begin();
  void take(const kernel::MulticastRoute& route);
  void end();
  void noteGone();
  control::Reply part(std::size_t most);
  std::string head() const;
  void append(const Flow& flow, std::string& out) const;

  Subject subject_;
  Question question_;
  std::unique_ptr<kernel::MulticastReading> reading_;
  std::optional<FlowCheck> check_;
  bool more_ = false;  // to read
  std::size_t taken_ = 0;
  SeenFlows before_;  // in a round, those of the last one that have not been seen again
  SeenFlows now_;
  Nanos startedAt_ = 0;
  Nanos comparedWith_ = 0;  // when the last reading began; 0: there was none
  Nanos apart_ = 0;         // the two that are compared
  Nanos due_ = 0;
  bool sampling_;  // this reading is only for comparison
  bool telling_ = false;
  bool told_ = false;  // all flows, once
  std::size_t count_ = 0;
  std::array<std::size_t, verdictCount> summary_{};
  std::map<std::pair<Verdict, Id>, Flow> flows_;  // that are to be told
};

}  // namespace host
