#include "Commands.h"

#include <map>

#include "CommandTable.h"

namespace host {

int execute(const Request& request) {
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

}  // namespace host
