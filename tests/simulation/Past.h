#pragma once

#include <map>

#include "History.h"

/// What a router's MRIB was at each generation, as it was seen then. A history has to lead back to it.
class Past {
 public:
  explicit Past(host::Router& router);
  ~Past() { router_.unsubscribe(subscription_); }
  Past(const Past&) = delete;
  Past& operator=(const Past&) = delete;

  /// What the history of the router tells otherwise, of routes or of what a source's was; or nothing.
  std::string difference(const host::History& history, const std::vector<std::string>& sources);
  /// Remembers nothing but the present.
  void forget();

 private:
  using State = std::map<Lumo::Prefix, std::string>;

  static State stateOf(const host::Router& router);
  static std::string answerOf(const State& state, Lumo::IpAddr source);
  std::string routesDifference(const host::History& history) const;
  std::string answersDifference(const host::History& history, Lumo::IpAddr source) const;

  host::Router& router_;
  std::map<U64, State> states_;  // by generation
  U64 subscription_;
};
