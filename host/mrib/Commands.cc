#include "Commands.h"

#include <map>

#include "Client.h"
#include "CommandTable.h"
#include "Error.h"
#include "Escape.h"
#include "LiveMirror.h"
#include "Output.h"

namespace host {

namespace {

int command(const Request& request) {
  using namespace commands;
  static const std::map<std::string, int (*)(const Request&)> all{{"", routes},
                                                                  {"check", check},
                                                                  {"check-config", checkConfig},
                                                                  {"configure", configure},
                                                                  {"explain", explain},
                                                                  {"graph", graph},
                                                                  {"history", history},
                                                                  {"inspect", commands::inspect},
                                                                  {"metrics", metrics},
                                                                  {"monitor", monitor},
                                                                  {"reload", reload},
                                                                  {"report", commands::report},
                                                                  {"route", routes},
                                                                  {"rpf", rpf},
                                                                  {"running-config", runningConfig},
                                                                  {"status", status},
                                                                  {"unicast", unicast},
                                                                  {"unresolved", unresolved},
                                                                  {"watch", watch},
                                                                  {"what-if", whatIf}};
  return all.at(request.command)(request);
}

int codeOf(const control::RemoteError& e) {
  const bool badArgument = e.name() == "org.mrib.InvalidAddress" || e.name() == "org.mrib.InvalidPrefix" ||
                           e.name() == "org.mrib.NotFound";
  return badArgument ? usageError : inputError;
}

/// What an error of the service says, for people.
std::string textOf(const control::RemoteError& e) {
  const auto& p = e.parameters();
  const auto word = [&](const char* name) { return escaped(p.value(name, std::string())); };
  if (e.name() == "org.mrib.InvalidAddress") return '"' + word("address") + "\": " + word("why");
  if (e.name() == "org.mrib.InvalidPrefix") return '"' + word("prefix") + "\": " + word("why");
  for (const char* known : {"NotFound", "InvalidChange", "NoForwardingCache"}) {
    if (e.name() == std::string("org.mrib.") + known) return p.value("why", std::string());
  }
  if (e.name() == "org.mrib.NoHistory") return "it has not read the kernel yet, and has no history";
  if (e.name() == "org.mrib.NoConfigurationFile") return "the daemon has no configuration file";
  if (e.name() == "org.varlink.service.PermissionDenied") {
    return "only root and members of the group mrib may change the configuration";
  }
  if (e.name() == "org.varlink.service.InvalidParameter") return "the daemon refuses " + word("parameter");
  if (e.name() != "org.mrib.Refused") return e.what();
  std::string text = "refused, nothing has changed:";
  for (const auto& reason : p.at("reasons")) text += "\n  " + reason.get<std::string>();
  return text;
}

}  // namespace

int execute(Request& request, const std::string& help) {
  try {
    if (!help.empty()) {
      print(help);
      return found;
    }
    request.table = !request.tableName.empty() || !request.vrf.empty();
    if (request.table) request.tableNumber = kernel::tableOf(request.tableName, request.vrf);
    return command(request);
  } catch (const control::RemoteError& e) {
    return report(request, codeOf(e), textOf(e));
  } catch (const UsageError& e) {
    return report(request, usageError, e.what());
  } catch (const Error& e) {
    return report(request, inputError, e.what());
  } catch (const std::bad_alloc&) {
    return report(request, inputError, "there is not enough memory");
  } catch (const std::exception& e) {
    return report(request, inputError, "unexpected: " + escaped(e.what()));
  }
}

}  // namespace host
