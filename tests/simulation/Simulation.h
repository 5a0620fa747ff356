#pragma once

#include <optional>

#include "LiveRouter.h"
#include "RibService.h"
#include "Server.h"
#include "Truth.h"

/// The daemon, its kernel, its clients and its operators on a clock of their own. A seed is one exact run.
class Simulation {
 public:
  /// `folder`: where the configuration is.
  Simulation(U64 seed, const std::string& folder, bool isLoud = false);
  ~Simulation();
  /// Returns what is wrong, or nothing.
  std::string run();

 private:
  using Nanos = host::Nanos;
  using Json = host::documents::Json;
  struct Daemon;
  struct Client;

  [[noreturn]] void fail(const std::string& what) const;
  void say(const std::string& what) const;

  // What happens
  void event();
  void start();
  void connect();
  void meddle(Client& client);
  void configure();
  void reload();
  std::string line();
  Json call(const std::string& method, const Json& parameters);

  // Time
  Nanos turn();
  void pass(Nanos time);
  bool carry(Client& client);
  void hear(Client& client, const std::string& message);
  void hearMonitor(Client& client, const Json& reply);
  void hearWatch(Client& client, const Json& reply);

  // Judgement
  void rest(bool isLong);
  void returnToStart();
  void probe();
  void readList();
  void checkExport(const host::Router& fresh, bool isLong);
  void checkWrite(std::span<const host::kernel::RouteOp> ops);
  void checkClients(bool isLong);
  host::LiveRouter::Options options(bool isFresh) const;

  U64 seed_;
  std::string path_;
  bool isLoud_;
  std::size_t history_ = seed_ % 2 == 0 ? 60 : 4;  // changes: of many, what is lost would be hard to see
  Dice dice_;
  Nanos now_ = host::seconds(1000);
  VirtualKernel kernel_;
  std::optional<host::ExportTable> export_;
  std::unique_ptr<Daemon> daemon_;
  std::vector<std::unique_ptr<Client>> clients_;
  std::unique_ptr<host::control::Stream> list_;  // that somebody reads a part of now and then
  std::string listed_;                           // by this method
  std::map<Lumo::Prefix, Nanos> writtenAt_;
  std::string fault_;  // of the daemon, as it logged it
};
