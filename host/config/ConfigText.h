#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "Configuration.h"

namespace host {

/// All names of lookup modes, as messages list them.
extern const std::string_view lookupModeNames;
std::string_view nameOf(LookupMode mode);
std::optional<LookupMode> lookupModeOf(std::string_view name);

/// All names of those an export is for, as messages list them.
extern const std::string_view exportForNames;
std::string_view nameOf(ExportFor user);
std::optional<ExportFor> exportForOf(std::string_view name);
/// Why the MRIB can't be written into this table, or empty.
std::string faultOf(const ExportTable& table);
/// The line that configures it.
std::string textOf(const ExportTable& table);

/// An RPF for people: the next hop, or the escaped name of the interface.
std::string rpfText(const MrouteLine& line);
/// A line as it can be read again, without its end.
std::string textOf(const MrouteLine& line);
/// A configuration in one text, without includes, that reads as the same one.
std::string textOf(const Configuration& configuration);

}  // namespace host
