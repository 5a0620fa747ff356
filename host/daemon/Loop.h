#pragma once

#include "Application.h"
#include "Listener.h"
#include "Log.h"
#include "Manager.h"
#include "Server.h"

namespace host::daemon {

/// What a daemon consists of; all of it outlives the loop.
struct Parts {
  Application& application;
  control::Server& server;
  Listener& listener;
  Manager& manager;
  Log& log;
};

/// Holds the signals back that `run` hears, so that none of them ends the process before or after it.
void signalsAreHeld(bool held);

/// Runs until SIGTERM or SIGINT; SIGHUP reloads. Each round of the loop gives the application one turn, asks
/// all streams, and serves every client that is ready, a bounded number of requests each. One at a time in a
/// process. Throws what the application throws, and Error when the system has no loop.
void run(const Parts& parts);

}  // namespace host::daemon
