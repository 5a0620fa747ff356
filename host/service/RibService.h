#pragma once

#include <array>
#include <unordered_map>

#include "Call.h"
#include "Configurator.h"
#include "Documents.h"
#include "Exporter.h"
#include "History.h"
#include "MulticastCache.h"
#include "Parameters.h"
#include "PrefixHash.h"
#include "ReversePath.h"
#include "Streams.h"
#include "WhatIf.h"

namespace host {

/// Of the programs.
const char* version();

/// The methods of org.mrib, for the daemon's clients and, in the same process, for the `mrib` command.
class RibService : public control::Handler {
 public:
  struct Exported {
    ExportTable table;
    std::optional<U32> user;  ///< whose look-ups it answers
    const Exporter& exporter;
  };
  struct Setting {
    std::string source;  ///< where the routes come from, in words
    Nanos startedAt = 0;
    std::function<U64()> foreign = [] { return U64{0}; };  ///< datagrams of other processes
    std::optional<Exported> exported{};                    ///< the MRIB in a kernel table
    const kernel::ReversePath* kernel = nullptr;           ///< what the kernel's own checks go by
    const kernel::MulticastCache* cache = nullptr;         ///< of multicast forwarding; null: not known
    /// Of the machine whose routes these are, as far as it is known.
    kernel::LinkSwitch linkSwitch = [](const auto&, const auto&) { return false; };
    /// Null where none is kept.
    std::function<const History*()> history = []() -> const History* { return nullptr; };
  };

  /// `configurator` is null where the configuration cannot be changed.
  RibService(Router& router, Configurator* configurator, Router::Clock clock, Setting setting);
  ~RibService() override;
  RibService(const RibService&) = delete;
  RibService& operator=(const RibService&) = delete;

  const std::vector<control::Interface>& interfaces() const override { return interfaces_; }
  std::optional<control::Answer> call(std::string_view method, const nlohmann::json& parameters, bool more,
                                      const control::Peer& peer) override;

 private:
  struct Call {
    Parameters parameters;
    bool more;
    const control::Peer& peer;
  };
  using Method = control::Answer (RibService::*)(Call&);

  control::Answer getStatus(Call& call);
  control::Answer lookup(Call& call);
  control::Answer explain(Call& call);  // Explain.cc
  control::Answer listRoutes(Call& call);
  control::Answer listUnicastRoutes(Call& call);
  control::Answer listUnresolved(Call& call);
  control::Answer listInterfaces(Call& call);
  control::Answer graph(Call& call);
  control::Answer getWarnings(Call& call);
  control::Answer monitor(Call& call);
  control::Answer watch(Call& call);
  control::Answer getConfiguration(Call& call);
  control::Answer reload(Call& call);
  control::Answer configure(Call& call);
  control::Answer inspect(Call& call);
  control::Answer check(Call& call);
  control::Answer listMulticastInterfaces(Call& call);

  const kernel::MulticastCache& cache() const;
  control::Answer whatIf(Call& call);       // WhatIfMethods.cc
  control::Answer rankLinks(Call& call);    // likewise
  control::Answer history(Call& call);      // HistoryMethods.cc
  control::Answer explainPast(Call& call);  // likewise

  WhatIf::Setting whatIfSetting() const;
  /// Throws the reply that says that there is none.
  const History& kept() const;
  const std::string& answerBody(const RpfAnswer& answer);
  void appendAnswer(const std::string& source, std::string& out);
  std::vector<mrib::Route> routesFor(Call& call) const;
  std::vector<Lumo::IpGenPrefix> unicastFor(Call& call) const;
  Configurator& configuratorFor(const Call& call) const;
  control::Answer answerTo(const ConfigurationChange& change) const;

  Router& router_;
  Configurator* configurator_;
  Router::Clock clock_;
  Setting setting_;
  std::vector<control::Interface> interfaces_;
  std::shared_ptr<MonitorLog> log_;
  U64 subscription_ = 0;

  /// Texts of what was answered since the state last changed, by table and prefix.
  std::array<std::unordered_map<Lumo::IpGenPrefix, std::string, kernel::PrefixHash>, 3> bodies_;
  U64 bodiesOf_ = 0;
};

}  // namespace host
