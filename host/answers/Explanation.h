#pragma once

#include "Decision.h"
#include "KernelVerdict.h"

namespace host {

/// Why packets from a source must come in by their way, or have none: told in steps, down to the interfaces.
/// All claims about what resolves are the engine's own, asked for each configured line.
struct Explanation {
  enum class Kind : U8 {
    lookupMode,   ///< which table is asked
    match,        ///< the longest match in the MRIB, or that there is none
    shorter,      ///< a shorter route that also matches
    wouldMatch,   ///< a longer configured prefix without a route
    line,         ///< a configured line, and what it comes to
    onCircle,     ///< a line of the circle for which one is held back
    through,      ///< the route that an RPF resolves through
    interface,    ///< the state of an interface
    cut,          ///< there would be more than anybody reads
    unicast,      ///< the unicast table's answer
    answer,       ///< the ways by which packets may come
    incoming,     ///< what the MRIB says of the incoming interface
    kernelCheck,  ///< what the kernel's own checks of the source say
    forwarding    ///< whether the kernel forwards what comes in by an interface
  };
  enum class LineState : U8 { inForce, waiting, unresolved, unsettled };
  struct Interface {
    U32 index = 0;
    std::string name;
    bool up = false;
    bool carrier = false;
    std::vector<std::string> addresses;  ///< with lengths, as "10.0.1.1/24"
  };
  struct Step {
    Kind kind;
    unsigned depth = 0;
    std::string text{};          ///< a sentence, escaped
    Lumo::IpGenPrefix prefix{};  ///< that it is about; empty: none
    std::optional<mrib::Route> route{};
    std::optional<kernel::Answer> unicast{};
    std::optional<mrib::Resolution> line{};  ///< of `onCircle`, only what is configured
    LineState state = LineState::inForce;    ///< of the line
    std::string fault{};  ///< of one that is unresolved, as its predicate, escaped: "does not resolve: ..."
    std::optional<Interface> interface {};
    std::optional<KernelVerdict> kernel{};
    std::size_t seen = 0;  ///< number of the step that explains this route already, counted from 1; 0: none
  };
  enum class Verdict : U8 {
    accepted,
    wrongInterface,  ///< packets that come in by `incoming` fail the RPF check
    noRpf,           ///< there is no way for the source, or its route leads nowhere
    kernelDrops,     ///< right by the MRIB, and dropped by the kernel before it asks
    notForwarded     ///< right by the MRIB, and the kernel forwards nothing that comes in there
  };

  Decision decision;
  std::optional<U32> incoming;  ///< link
  std::vector<Step> steps;
  Verdict verdict = Verdict::accepted;
  std::string conclusion;  ///< the cause in one sentence without a full stop, escaped
};

/// `incoming`: also whether packets that come in by this link pass. `kernel`: what the kernel's own checks go
/// by; null: not known.
Explanation explain(const Router& router, const Lumo::IpGenAddr& source, std::optional<U32> incoming,
                    const kernel::ReversePath* kernel);

}  // namespace host
