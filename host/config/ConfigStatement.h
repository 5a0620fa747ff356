#pragma once

#include <string>
#include <string_view>

#include "ConfigWords.h"
#include "Configuration.h"

namespace host {

/// Where a statement stands: commands may begin with `no`, files may include others.
enum class Grammar : U8 { file, command };

/// What one line says.
struct Statement {
  enum class Kind : U8 { none, mroute, lookupMode, exportTable, include };
  Kind kind = Kind::none;
  bool no = false;             ///< it takes away what it names
  bool hasPreference = false;  ///< of an mroute: it was written
  LookupMode lookupMode = LookupMode::mribThenUrib;
  ExportTable exportTable{};
  U32 column = 0;       ///< of the path
  MrouteLine mroute{};  ///< its origin is 0
  std::string path{};   ///< that it includes
};

/// Reads a line without its end. Throws Fault.
Statement parseStatement(std::string_view line, Grammar grammar);

}  // namespace host
