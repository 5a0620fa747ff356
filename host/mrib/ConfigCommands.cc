#include <fmt/format.h>

#include "Client.h"
#include "CommandTable.h"
#include "ConfigReader.h"
#include "Documents.h"
#include "Error.h"
#include "Escape.h"
#include "Output.h"
#include "Text.h"
#include "WhoAnswers.h"

// What is about the configuration.

namespace host::commands {

namespace {

int showDifference(const Request& request, const Backend& backend, const Json& answer) {
  print(request.json ? dump(documentOf(backend, answer), 2) : text::ofDifference(answer.at("difference")));
  return found;
}

/// All of a running configuration, in one text.
std::string configurationOf(Backend& backend) {
  std::string text;
  backend.stream("org.mrib.GetConfiguration", Json::object(), [&](const Json& part) {
    text += part.at("text").get<std::string>();
    return true;
  });
  return text;
}

}  // namespace

int reload(const Request& request) {
  const auto backend = onlyDaemonFor(request);
  return showDifference(request, *backend, backend->call("org.mrib.Reload", {{"dryRun", request.dryRun}}));
}

int configure(const Request& request) {
  const auto backend = onlyDaemonFor(request);
  std::vector<std::string> commands;
  for (const std::string& argument : request.arguments) commands.push_back(configurationText(argument));
  const Json parameters{{"commands", commands}, {"save", request.save}, {"dryRun", request.dryRun}};
  return showDifference(request, *backend, backend->call("org.mrib.Configure", parameters));
}

/// Against what a daemon runs, where one answers. The file is read by this process, with the user's rights.
int checkConfig(const Request& request) {
  const std::string& file = request.arguments.front();
  OnceOptions options{request.from, "", std::nullopt, false, request.tableNumber};
  try {
    if (!request.once && request.from.empty()) {
      options.configuration =
          parseConfiguration(configurationOf(*daemonFor(request)), "the running configuration");
    }
  } catch (const control::NotAnswering&) {
    if (!namedSocket(request).empty()) throw;
  }
  const auto own = readOnce(options, [] {});
  ConfigurationChange change = own->configurator().take(file);  // by this process, and nobody else
  if (!change.reasons.empty()) throw Error(fmt::format("{}", fmt::join(change.reasons, "\n")));
  const bool compares = options.configuration.has_value();
  if (compares && change.before.exportTable != change.after.exportTable)
    change.warnings.emplace_back("another exported table takes a restart of mribd: a reload is refused");
  if (!compares && !request.json) change.difference = {};  // all is new
  Json answer;
  answer["valid"] = true;
  answer["configured"] = change.after.mroutes.size();
  answer["difference"] = documents::ofConfigurationChange(change, Why(own->router()));
  if (request.json) {
    print(dump(documentOf(*own, answer), 2));
    return found;
  }
  std::string out =
      fmt::format("{}: valid, {} configured routes\n", escaped(file), change.after.mroutes.size());
  if (compares) {
    out += "Against the running configuration:\n" + text::ofDifference(answer["difference"]);
  } else {
    out += text::ofConsequences(answer["difference"]);
  }
  print(out);
  return found;
}

int runningConfig(const Request& request) {
  const auto backend = backendFor(request);
  const std::string text = configurationOf(*backend);
  print(request.json ? dump(documentOf(*backend, {{"text", text}}), 2) : text);
  return found;
}

}  // namespace host::commands
