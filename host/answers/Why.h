#pragma once

#include <array>
#include <string>
#include <unordered_map>
#include <vector>

#include "PrefixHash.h"
#include "Router.h"

namespace host {

/// Says why configured routes do not resolve, as things are when it is made.
class Why {
 public:
  /// Costs a look at each of the router's addresses.
  explicit Why(const Router& router);

  /// In a sentence without a full stop, escaped: as the agent says it, but for stand-ins of interfaces, which
  /// nobody needs to know of; and with what explains to people who see a way that the MRIB does not have it.
  std::string of(const mrib::Unresolved& unresolved) const;
  /// The link of the router's that another address is on the subnet of, or 0.
  U32 linkOf(Lumo::IpAddr address) const;

 private:
  std::string hintFor(Lumo::IpAddr address) const;

  const Router& router_;
  std::unordered_map<Lumo::Prefix, U32, kernel::PrefixHash> subnets_;
  std::array<bool, Lumo::Prefix::maxLength + 1> lengths_{};  // that subnets have
};

/// The errors among `after` that were none before.
std::vector<mrib::Unresolved> newErrors(const std::vector<mrib::Unresolved>& before,
                                        std::vector<mrib::Unresolved> after);

}  // namespace host
