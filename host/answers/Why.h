#pragma once

#include <bitset>
#include <optional>
#include <string>
#include <unordered_map>
#include <vector>

#include "PrefixHash.h"
#include "Router.h"

namespace host {

/// Says why configured routes do not resolve. The first time that this depends on the router's subnets costs
/// a look at each of its addresses.
class Why {
 public:
  explicit Why(const Router& router) : router_(router) {}

  /// In a sentence without a full stop, escaped: as the agent says it, but for stand-ins of interfaces, which
  /// nobody needs to know of; and with what explains to people who see a way that the MRIB does not have it.
  std::string of(const mrib::Unresolved& unresolved) const;
  /// The link of the router's that another address is on the subnet of, or 0.
  U32 linkOf(Lumo::IpAddr address) const;

 private:
  struct Subnets {
    std::unordered_map<Lumo::Prefix, U32, kernel::PrefixHash> links;
    std::bitset<Lumo::Prefix::maxLength + 1> lengths;  // that there are
  };

  std::string hintFor(Lumo::IpAddr address) const;
  const Subnets& subnets() const;

  const Router& router_;
  mutable std::optional<Subnets> subnets_;
};

/// The errors among `after` that were none before.
std::vector<mrib::Unresolved> newErrors(const std::vector<mrib::Unresolved>& before,
                                        std::vector<mrib::Unresolved> after);

}  // namespace host
