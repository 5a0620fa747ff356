#pragma once

#include "Backend.h"
#include "Commands.h"

namespace host {

/// The socket of a daemon that the user named, or nothing.
std::string namedSocket(const Request& request);

/// The daemon of the request. Throws control::NotAnswering.
std::unique_ptr<Backend> daemonFor(const Request& request);

/// The same for a command that nobody else can answer. Throws UsageError where an option says that no daemon
/// is asked.
std::unique_ptr<Backend> onlyDaemonFor(const Request& request);

/// The daemon where one answers; otherwise, and when the request is about something else than what a daemon
/// serves, this process.
std::unique_ptr<Backend> backendFor(const Request& request);

}  // namespace host
