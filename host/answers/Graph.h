#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Router.h"

namespace host {

/// What leads where: prefixes, through what each configured line of theirs resolves or would, and at the ends
/// the interfaces, or what keeps a line from resolving. Arrows point the way that is resolved.
struct Graph {
  struct Node {
    enum class Kind : U8 {
      configured,  ///< a prefix with configured lines, one of which is in force or none
      connected,   ///< a connected route; configured lines that it has are not in force
      unicast,     ///< a route of the unicast table that answers for the source
      interface,
      end  ///< what a line names and nothing leads to
    };
    Kind kind = Kind::end;
    bool usable = false;  ///< a prefix has a route; an interface is up with carrier; an end never is
    bool asked = false;   ///< what the question was about
    std::vector<std::string> names{};  ///< of a group the first few
    std::size_t count = 1;             ///< nodes that this one stands for
  };
  struct Edge {
    enum class State : U8 { inForce, waiting, unresolved };
    U32 from = 0;
    U32 to = 0;
    State state = State::inForce;
    // Nothing for what is not configured, and for what differs within a group.
    std::string rpf{};
    U32 preference = 0;
    std::string place{};
    std::string why{};  ///< it is not in force
    std::optional<mrib::Reason> reason{};
    std::size_t count = 1;  ///< lines, or ways of connected routes, that this one stands for
  };

  std::vector<Node>
      nodes;  ///< prefixes in order, and each thing that they lead to behind the first that does
  std::vector<Edge> edges;  ///< by `from`
};

/// The whole MRIB with its configuration. A look-up in the trie for each line.
Graph graphOf(const Router& router);
/// What a prefix leads through, and what depends on it at first hand. Empty when the MRIB has no such prefix
/// and none is configured.
Graph graphOf(const Router& router, const Lumo::Prefix& prefix);
/// The same of the route that answers for a source, and of longer configured prefixes that would if they
/// resolved. Empty when there is neither.
Graph graphOf(const Router& router, const Lumo::IpGenAddr& source);

}  // namespace host
