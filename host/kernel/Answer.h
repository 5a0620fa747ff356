#pragma once

#include "Values.h"
#include "Zan/Hash.h"

namespace host::kernel {

/// What a router does with packets to a prefix.
struct Answer {
  enum class Kind : U8 {
    none,         ///< it looks for a shorter prefix
    attached,     ///< the destination is on the links of `hops`
    local,        ///< the router's own address, held by the link of the one hop
    gateway,      ///< by way of `hops`
    blackhole,    ///< dropped
    unreachable,  ///< dropped, the sender is told
    prohibit,     ///< likewise
    throwing      ///< this table has no answer, and no shorter prefix of it is asked
  };

  Kind kind = Kind::none;
  U8 protocol = 0;
  U32 metric = 0;
  std::vector<Hop> hops;  ///< those that can be used
  friend bool operator==(const Answer&, const Answer&) = default;
};

struct HopsHash {
  std::size_t operator()(const std::vector<Hop>& hops) const {
    U64 hash = hops.size();
    for (const Hop& hop : hops) hash = Zan::mix(hash ^ hop.gateway.hash(), U64{hop.link} << 8 | hop.flags);
    return hash;
  }
};

struct AnswerHash {
  std::size_t operator()(const Answer& a) const {
    const U64 head = static_cast<U64>(a.kind) << 40 | U64{a.protocol} << 32 | a.metric;
    return Zan::mix(head, HopsHash()(a.hops));
  }
};

}  // namespace host::kernel
