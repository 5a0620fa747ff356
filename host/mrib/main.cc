#include <csignal>

#include "CommandLine.h"
#include "Error.h"
#include "StandardDescriptors.h"

int main(int argc, char** argv) {
  std::signal(SIGPIPE, SIG_IGN);
  host::holdStandardDescriptors();
  host::Request request;
  std::string help;
  try {
    help = host::readCommandLine({argv + 1, argv + argc}, request);
  } catch (const host::Error& e) {
    return host::report(request, host::usageError, e.what());
  }
  return host::execute(request, help);
}
