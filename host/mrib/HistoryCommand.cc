#include <fmt/chrono.h>
#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <chrono>
#include <ctime>

#include "Clock.h"
#include "CommandTable.h"
#include "Escape.h"
#include "Output.h"
#include "Text.h"
#include "WhoAnswers.h"

// What was.

namespace host::commands {

namespace {

std::string timeText(double seconds) {
  const auto whole = static_cast<std::time_t>(seconds);
  std::tm local{};
  localtime_r(&whole, &local);
  const auto milli = static_cast<int>((seconds - static_cast<double>(whole)) * 1000);
  return fmt::format("{:%Y-%m-%d %H:%M:%S}.{:03}", local, milli);
}

/// Seconds of "90s", "10m", "2h" or "1d".
std::optional<U64> spanOf(const std::string& text) {
  U64 value = 0;
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  if (error != std::errc() || stop + 1 != end || value > 100000) return std::nullopt;
  switch (*stop) {
    case 's':
      return value;
    case 'm':
      return value * 60;
    case 'h':
      return value * 3600;
    case 'd':
      return value * 86400;
    default:
      return std::nullopt;
  }
}

U64 sinceEpoch(std::time_t time) {
  return static_cast<U64>(std::max<std::time_t>(time, 0));
}

/// "2026-02-30" has the form of one.
bool isDay(const std::tm& date) {
  using namespace std::chrono;
  return year_month_day(year(date.tm_year + 1900), month(static_cast<unsigned>(date.tm_mon + 1)),
                        day(static_cast<unsigned>(date.tm_mday)))
      .ok();
}

/// A time of a local clock; without a date the last time that the clock showed it.
std::optional<U64> clockTime(const std::string& text, std::time_t now) {
  for (const char* format : {"%H:%M", "%H:%M:%S", "%Y-%m-%d", "%Y-%m-%d %H:%M", "%Y-%m-%d %H:%M:%S"}) {
    std::tm local{};
    localtime_r(&now, &local);
    const bool hasDate = format[1] == 'Y';
    local.tm_sec = 0;
    if (hasDate) local.tm_hour = local.tm_min = 0;
    local.tm_isdst = -1;
    const char* end = strptime(text.c_str(), format, &local);
    if (!end || *end != '\0' || !isDay(local)) continue;
    if (const std::time_t time = std::mktime(&local); hasDate || time <= now) return sinceEpoch(time);
    --local.tm_mday;
    local.tm_isdst = -1;
    return sinceEpoch(std::mktime(&local));
  }
  return std::nullopt;
}

/// As seconds since 1970, or 0 for what was before.
U64 timeOf(const std::string& text) {
  const U64 now = wallNow() / seconds(1);
  if (const auto span = spanOf(text)) return now - std::min(now, *span);
  if (const auto time = clockTime(text, static_cast<std::time_t>(now))) return *time;
  throw UsageError('"' + escaped(text) +
                   "\": expected a time such as 14:03, \"2026-03-01 14:03:20\", or 10m for ten minutes ago");
}

Json parametersOf(const Request& request) {
  Json parameters = Json::object();
  if (!request.arguments.empty()) {
    const std::string& text = request.arguments.front();
    parameters[text.find('/') == text.npos ? "address" : "prefix"] = jsonText(text);
  }
  if (request.last != 0) parameters["last"] = request.last;
  if (!request.since.empty()) parameters["since"] = timeOf(request.since);
  return parameters;
}

std::string momentText(const Json& moment) {
  return fmt::format("{}, generation {}: {}", timeText(moment.at("time").get<double>()),
                     moment.at("generation").get<U64>(), moment.at("cause").get<std::string>());
}

U64 generationOf(const std::string& text) {
  U64 value = 0;
  const auto [stop, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc()) throw UsageError('"' + escaped(text) + "\": there is no such generation");
  return value;
}

/// Changes with the moment above those that it made.
class Lines {
 public:
  std::string of(const Json& changes) {
    std::string text;
    for (const Json& change : changes) {
      const U64 generation = change.at("generation").get<U64>();
      if (std::exchange(generation_, generation) != generation) {
        text += momentText(change) + '\n';
      }
      text += "  " + text::ofChange(change, false);
    }
    return text;
  }

 private:
  U64 generation_ = ~U64{0};
};

}  // namespace

int history(const Request& request) {
  const Json parameters = parametersOf(request);
  const auto backend = onlyDaemonFor(request);
  Listing listing(request, *backend);
  Lines lines;
  const std::size_t count = listing.list("org.mrib.History", parameters, "changes",
                                         [&](const Json& changes) { return lines.of(changes); });
  listing.end();
  if (count == 0 && !request.json) {
    print(fmt::format("no {}change is known; all since {} are\n", parameters.empty() ? "" : "such ",
                      timeText(listing.head().at("begin").at("time").get<double>())));
  }
  return codeOf(request, listing.isStale());
}

// ---- Why it was so ----

namespace {

std::string stepText(const Json& step) {
  const std::string role = step.at("role");
  const std::string address = step.at("address");
  const std::string how = role == "answer"    ? "The MRIB answered for " + address
                          : role == "shorter" ? "A shorter route also matched"
                                              : address + " was reached";
  const Json& route = step.at("route");
  std::string text =
      fmt::format("{} by {} {}\n", how, route.at("prefix").get<std::string>(), text::ofRoute(route));
  const Json& came = step.at("came");
  const Json& went = step.at("went");
  text += came.is_null() ? "     it was there when the history begins\n"
                         : "     it came " + momentText(came) + '\n';
  return text + (went.is_null() ? "     it is there still\n" : "     it went " + momentText(went) + '\n');
}

std::string pastText(const Json& answer) {
  std::string text = "As it was since " + momentText(answer.at("since")) + '\n';
  if (!answer.at("until").is_null()) text += "           until " + momentText(answer["until"]) + '\n';
  if (answer.at("steps").empty())
    return text + "The MRIB had no route for " + answer.at("source").get<std::string>() + '\n';
  int number = 0;
  for (const Json& step : answer["steps"]) text += fmt::format("{:>3}. {}", ++number, stepText(step));
  return text;
}

}  // namespace

int explainPast(const Request& request) {
  Json parameters{{"source", jsonText(request.arguments.front())}};
  const bool isNumber = request.at.find_first_not_of("0123456789") == std::string::npos;
  if (isNumber) {
    parameters["generation"] = generationOf(request.at);
  } else {
    parameters["time"] = timeOf(request.at);
  }
  const auto backend = onlyDaemonFor(request);
  const Json answer = backend->call("org.mrib.ExplainPast", parameters);
  print(request.json ? dump(documentOf(*backend, answer), 2) : backend->name() + "\n\n" + pastText(answer));
  return codeOf(request, answer.at("stale") == true, answer.at("steps").empty() ? noRpfRoute : found);
}

}  // namespace host::commands
