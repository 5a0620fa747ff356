#include <cstdio>
#include <cstdlib>

#include "Client.h"
#include "CommandTable.h"
#include "Error.h"
#include "Escape.h"
#include "Output.h"
#include "Pim/MribSm/MribSm.h"
#include "WhoAnswers.h"
#include "Zan/Assert.h"

namespace host::commands {

namespace {

/// An operation that was called by hand may be refused by an assertion: that is an answer, not a crash.
void reportAssertion(const Zan::AssertionFailure& failure) {
  std::fprintf(stderr, "mrib: the engine refuses this: assertion `%s' in %s\n", failure.expression,
               failure.function);
  std::_Exit(usageError);
}

/// The objects of this process. Wrong names are answered as a daemon answers them.
std::string inspectOwn(const Router& router, const InspectRequest& request) {
  Zan::assertionObserverIs(reportAssertion);
  try {
    return host::inspect(Zan::GenericIf(router.agent().engine()), "MribSm", request);
  } catch (const Error& e) {
    throw control::RemoteError("org.mrib.NotFound", {{"why", jsonText(e.what())}});
  }
}

}  // namespace

int inspect(const Request& request) {
  const auto backend = backendFor(request);
  InspectRequest asked = request.inspect;
  asked.json = request.json;
  if (const auto* own = dynamic_cast<const OwnReading*>(backend.get())) {
    print(inspectOwn(own->router(), asked));
    return found;
  }
  const Json answer = backend->call(
      "org.mrib.Inspect", {{"path", jsonText(asked.path)}, {"depth", asked.depth}, {"json", asked.json}});
  print(answer.at("text").get<std::string>());
  return found;
}

}  // namespace host::commands
