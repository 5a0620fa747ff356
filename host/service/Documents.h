#pragma once

#include <nlohmann/json.hpp>

#include "Configurator.h"
#include "Exporter.h"
#include "Why.h"

/// What there is to say, as JSON documents: one shape for the control protocol and for `mrib -j`.
namespace host::documents {

using Json = nlohmann::ordered_json;

/// A configured route, and where it was written.
Json ofMroute(const Configuration& configuration, const mrib::Mroute& mroute);
Json ofUnresolved(const Configuration& configuration, const Why& why, const mrib::Unresolved& unresolved);
/// A route in force that an exported table has not, or not wholly.
Json ofNotExported(const Configuration& configuration, const MrouteLine& line, const Exporter::Fault& fault);
Json ofLine(const Configuration& configuration, const MrouteLine& line);
/// At most so many elements in all; `left` says how many more there are.
Json ofConfigurationChange(const ConfigurationChange& change, const Why& why,
                           std::size_t most = ~std::size_t{0});

// Of routes there are many, and clients wait for their changes: these are written at once, in half a
// microsecond.

void appendRoute(std::string& out, const Router& router, const mrib::Route& route,
                 KernelFeed::When when = KernelFeed::When::now);
void appendUnicast(std::string& out, const Router& router, const Lumo::IpGenPrefix& prefix,
                   const kernel::Answer& answer);
void appendChange(std::string& out, const Router& router, const mrib::Change& change,
                  KernelFeed::When when = KernelFeed::When::now);
/// The route of an answer; null when no table knows one.
void appendAnswered(std::string& out, const Router& router, const RpfAnswer& answer);

std::string_view nameOf(mrib::Reason reason);
std::string_view nameOf(RpfAnswer::Status status);
/// Empty for none.
std::string_view nameOf(RpfAnswer::Table table);

/// As the MRIB's routes are named: "connected", or "static".
std::string_view typeOf(const mrib::Route& route);
/// What a configured route resolves by: an address, or an interface.
std::string rpfOf(const mrib::Mroute& mroute);

/// As text that is valid UTF-8.
std::string textOf(const Json& document);

}  // namespace host::documents
