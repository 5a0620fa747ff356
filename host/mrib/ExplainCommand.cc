#include "CommandTable.h"
#include "Escape.h"
#include "Output.h"
#include "Text.h"
#include "WhoAnswers.h"

// Why packets from a source must come in by their way.

namespace host::commands {

namespace {

int codeOfExplanation(const Json& explanation) {
  const std::string verdict = explanation.at("verdict");
  if (verdict == "noRpf") return noRpfRoute;
  const bool passes = verdict == "accepted" || !explanation.contains("incoming");
  return passes ? found : notTakenIn;
}

}  // namespace

int explain(const Request& request) {
  if (!request.at.empty()) return explainPast(request);
  const auto backend = backendFor(request);
  Json parameters{{"source", jsonText(request.arguments.front())}};
  if (!request.incoming.empty()) parameters["incoming"] = jsonText(request.incoming);
  const Json explanation = backend->call("org.mrib.Explain", parameters);
  print(request.json ? dump(documentOf(*backend, explanation), 2)
                     : backend->name() + "\n\n" + text::ofExplanation(explanation));
  return codeOf(request, explanation.at("stale") == true, codeOfExplanation(explanation));
}

}  // namespace host::commands
