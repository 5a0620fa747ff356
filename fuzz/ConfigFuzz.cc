#include <algorithm>

#include "ConfigEdit.h"
#include "ConfigReader.h"
#include "ConfigText.h"
#include "Target.h"

// Reads the bytes as the text of a configuration, and as commands on what it holds. It is refused with
// reasons that have a place and are fit to print, or its text reads as the same configuration.

namespace {

using fuzz::must;
using host::Configuration;

template <class Make>
std::optional<Configuration> made(Make make) {
  try {
    return make();
  } catch (const host::ConfigurationError& e) {
    must(!e.errors().empty());
    for (const host::ConfigError& error : e.errors()) {
      const std::string message = error.message();
      must(!error.place.empty() && !error.text.empty() &&
           std::none_of(message.begin(), message.end(), [](char c) { return static_cast<U8>(c) < ' '; }));
    }
    return std::nullopt;
  }
}

void run(fuzz::Bytes bytes) {
  const std::string text(fuzz::textOf(bytes));
  if (text.find("include") != std::string::npos) return;  // of files, which are not the input's
  const auto first = made([&] { return host::parseConfiguration(text, "f"); });
  if (first) {
    const auto again = made([&] { return host::parseConfiguration(host::textOf(*first), "again"); });
    must(again && host::differenceOf(*first, *again).empty());
  }
  const Configuration before = first.value_or(Configuration());
  const std::vector<std::string> commands{text, text.substr(0, text.find('\n'))};
  const auto after = made([&] { return host::edited(before, commands); });
  must(!after || !host::differenceOf(before, *after).empty() || before.exportTable != after->exportTable);
}

const fuzz::Target target("config", run);

}  // namespace
