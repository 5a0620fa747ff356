#pragma once

#include "Commands.h"

/// What each command does: prints on standard output, and returns the exit code. All throw Error and
/// control::RemoteError.
namespace host::commands {

// RouteCommands.cc
int routes(const Request& request);
int unicast(const Request& request);
int unresolved(const Request& request);
int rpf(const Request& request);
int status(const Request& request);
int monitor(const Request& request);
int watch(const Request& request);

// PictureCommands.cc
int graph(const Request& request);

// ReportCommand.cc
int report(const Request& request);

// ForwardingCommands.cc
int check(const Request& request);
int metrics(const Request& request);

// ConfigCommands.cc
int reload(const Request& request);
int configure(const Request& request);
int checkConfig(const Request& request);
int runningConfig(const Request& request);

// WhatIfCommand.cc
int whatIf(const Request& request);

// HistoryCommand.cc
int history(const Request& request);
int explainPast(const Request& request);

// ExplainCommand.cc
int explain(const Request& request);

// InspectCommand.cc
int inspect(const Request& request);

}  // namespace host::commands
