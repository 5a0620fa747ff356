#pragma once

#include "Call.h"

namespace host::control {

/// The errors that every service has.
Reply interfaceNotFound(std::string_view interface);
Reply methodNotFound(std::string_view method);
Reply methodNotImplemented(std::string_view method);
Reply invalidParameter(std::string_view parameter);
Reply permissionDenied();
/// For a call that has to say `more`.
Reply expectedMore();

}  // namespace host::control
