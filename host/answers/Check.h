#pragma once

#include <optional>

#include "Exporter.h"
#include "MulticastCache.h"
#include "ReversePath.h"
#include "Router.h"

namespace host {

/// What there is to say of an entry of the kernel's multicast forwarding cache, the worst first.
enum class Verdict : U8 {
  wrong,        ///< packets are taken from another interface than the MRIB says, or all come in by another
  notFollowed,  ///< likewise, though the exported table has said so for long enough
  dropped,      ///< packets that the MRIB accepts are dropped by the kernel's own check of their source
  noRpf,        ///< the MRIB accepts its packets from nowhere
  unresolved,   ///< packets come, and no routing daemon has said what becomes of them
  right,
  anySource,   ///< for any source, of which the MRIB says nothing
  registered,  ///< packets come in PIM register messages
  otherTable,  ///< of a table that this MRIB is not for
  gone         ///< of what was there before: it is no more
};
inline constexpr std::size_t verdictCount = static_cast<std::size_t>(Verdict::gone) + 1;

/// Whether something is wrong with forwarding, and not only not known.
constexpr bool isFault(Verdict verdict) {
  return verdict < Verdict::unresolved;
}
std::string_view nameOf(Verdict verdict);

/// What the counters of an entry have grown by since an earlier reading.
struct Growth {
  U64 packets = 0;
  U64 wrong = 0;
};

struct FlowAnswer {
  Verdict verdict = Verdict::right;
  std::vector<U32> expected;  ///< links that its packets may come in by, as the MRIB says
  std::string why;            ///< a sentence without a full stop; empty: there is nothing to say
};

/// Compares the kernel's multicast forwarding with the MRIB, at one moment.
class FlowCheck {
 public:
  using Interfaces = std::vector<kernel::MulticastInterface>;
  struct Context {
    const kernel::ReversePath* kernel = nullptr;  ///< what its own checks go by; null: not known
    const Exporter* exported = nullptr;           ///< of a table that FRR follows; null: there is none
  };
  /// What FRR gets for what it does in 15 ms.
  static constexpr Nanos patience = seconds(1);

  /// Refers to all of them.
  FlowCheck(const Router& router, const Context& context, const Interfaces& interfaces, Nanos now);

  /// Without growth, the counters of an entry say nothing.
  FlowAnswer judge(const kernel::MulticastRoute& route, std::optional<Growth> growth) const;

 private:
  void judgeRight(const kernel::MulticastRoute& route, std::optional<Growth> growth,
                  FlowAnswer& answer) const;
  void blame(const kernel::MulticastRoute& route, const RpfAnswer& rpf, FlowAnswer& answer) const;
  std::string droppedText(Lumo::IpAddr source, U32 link) const;
  std::string mustText(Lumo::IpAddr source) const;
  const kernel::MulticastInterface* interface(U32 link) const;
  std::string acceptedText(const kernel::MulticastRoute& route) const;
  std::string notForwarding(const std::vector<U32>& links) const;
  std::string namesOf(const std::vector<U32>& links) const;

  const Router& router_;
  const Interfaces& interfaces_;
  const std::unique_ptr<const kernel::ReversePath> kernel_;
  const Exporter* exported_;
  Nanos now_;
  U32 table_;
};

/// The table that a router forwards multicast by: a VRF has one of the number of its unicast table.
U32 multicastTableOf(const kernel::Mirror& mirror);

}  // namespace host
