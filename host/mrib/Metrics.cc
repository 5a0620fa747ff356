#include "Metrics.h"

#include <fmt/format.h>

#include <cstdint>
#include <map>
#include <utility>
#include <vector>

#include "Escape.h"

namespace host {

namespace {

using Json = nlohmann::ordered_json;

/// Names with their values.
using Labels = std::vector<std::pair<const char*, Json>>;

/// Any text fits between the quotes, with quotes and backslashes escaped; what might move a terminal is
/// \xHH here as elsewhere, of which the format knows nothing, so that its backslash is escaped as well.
std::string labelText(const Json& value) {
  const std::string plain = value.is_string() ? value.get<std::string>() : value.dump();
  std::string text;
  for (std::size_t at = 0;; ++at) {
    const std::size_t special = plain.find_first_of("\"\\", at);
    for (const char c : escaped(std::string_view(plain).substr(at, special - at))) {
      text += c == '\\' ? std::string(2, c) : std::string(1, c);
    }
    if (special == plain.npos) return text;
    text.append({'\\', plain[special]});
    at = special;
  }
}

class Metrics {
 public:
  /// The samples of a name follow each other.
  void name(std::string_view name, std::string_view type, std::string_view help) {
    name_ = name;
    text_ += fmt::format("# HELP {} {}\n# TYPE {} {}\n", name, help, name, type);
  }
  void sample(const Json& value, const Labels& labels = {}) {
    std::string list;
    for (const auto& [label, text] : labels) {
      list += fmt::format("{}{}=\"{}\"", list.empty() ? "" : ",", label, labelText(text));
    }
    text_ += name_ + (list.empty() ? "" : '{' + list + '}') + ' ' + numberText(value) + '\n';
  }
  void gauge(std::string_view metric, std::string_view help, const Json& value, const Labels& labels = {}) {
    name(metric, "gauge", help);
    sample(value, labels);
  }
  void counter(std::string_view metric, std::string_view help, const Json& value, const Labels& labels = {}) {
    name(metric, "counter", help);
    sample(value, labels);
  }
  const std::string& text() const { return text_; }

 private:
  static std::string numberText(const Json& value) {
    return value.is_boolean() ? (value.get<bool>() ? "1" : "0") : value.dump();
  }

  std::string name_;
  std::string text_;
};

void addStatus(Metrics& m, const Json& status) {
  m.gauge("mrib_info", "Which version answers, from whose routes, by which look-up mode.", 1,
          {{"version", status.at("version")},
           {"source", status.at("source")},
           {"lookup_mode", status.at("lookupMode")}});
  m.gauge("mrib_uptime_seconds", "Since this began to follow the kernel.", status.at("uptime"));
  m.gauge("mrib_stale", "Whether answers may be out of date.", status.at("stale"));
  m.counter("mrib_generations_total", "States of the MRIB.", status.at("generation"));
  m.gauge("mrib_routes", "Routes in the MRIB.", status.at("routes"));
  m.gauge("mrib_configured_routes", "Configured routes.", status.at("configured"));
  m.gauge("mrib_unresolved_routes", "Configured routes that do not resolve.", status.at("unresolved"));
  m.gauge("mrib_links", "Links.", status.at("links"));
  m.gauge("mrib_unicast_routes", "Routes in the unicast table.", status.at("unicastRoutes"));
  m.counter("mrib_healed_routes_total", "Routes that settling put right.", status.at("healed"));
}

void addMirror(Metrics& m, const Json& mirror) {
  m.counter("mrib_lost_notifications_total", "Times that notifications of the kernel were lost.",
            mirror.at("overruns"));
  m.counter("mrib_silent_changes_total", "Changes that the kernel did not tell.", mirror.at("corrected"));
  m.counter("mrib_foreign_messages_total", "Messages that did not come from the kernel.",
            mirror.at("foreign"));
  m.gauge("mrib_last_reading_seconds", "What the last reading of the kernel took.",
          mirror.at("lastDuration"));
  if (mirror.at("resyncs").empty()) return;
  m.name("mrib_kernel_readings_total", "counter", "Readings of the kernel, by what caused them.");
  for (const auto& [reason, count] : mirror.at("resyncs").items()) m.sample(count, {{"reason", reason}});
}

void addExport(Metrics& m, const Json& exported) {
  if (exported.is_null()) return;
  const Labels labels{{"table", exported.at("table")}, {"for", exported.at("for")}};
  m.gauge("mrib_exported_routes", "Routes in the exported table.", exported.at("routes"), labels);
  m.gauge("mrib_export_refused_routes", "Routes that the kernel refuses.", exported.at("refused"), labels);
  m.gauge("mrib_not_exportable_routes", "Routes that cannot be exported.", exported.at("notExportable"),
          labels);
  m.counter("mrib_export_writes_total", "Routes written to the exported table.", exported.at("written"),
            labels);
  m.counter("mrib_export_corrections_total", "Of these, what others had changed.", exported.at("putRight"),
            labels);
}

/// What an interface counts has one sample, though a routing daemon may have added it twice.
Json summed(const Json& interfaces) {
  std::map<std::pair<Json, Json>, std::size_t> places;
  Json sums = Json::array();
  for (const Json& interface : interfaces) {
    const auto [at, isNew] =
        places.try_emplace({interface.at("interface"), interface.at("table")}, sums.size());
    if (isNew) {
      sums.push_back(interface);
      continue;
    }
    for (const char* member : {"packetsIn", "bytesIn", "packetsOut", "bytesOut"}) {
      Json& sum = sums[at->second][member];
      sum = sum.get<std::uint64_t>() + interface.at(member).get<std::uint64_t>();
    }
  }
  return sums;
}

void addForwarding(Metrics& m, const Json& check, const Json& interfaces) {
  m.name("mrib_flows", "gauge",
         "Entries of the kernel's multicast forwarding cache, by what the MRIB says of them.");
  for (const auto& [verdict, count] : check.at("summary").items()) {
    if (verdict != "gone") m.sample(count, {{"verdict", verdict}});
  }
  const auto each = [&](const char* metric, const char* help, const char* in, const char* out) {
    if (!interfaces.empty()) m.name(metric, "counter", help);
    for (const Json& interface : interfaces) {
      const Labels labels{{"interface", interface.at("interface")}, {"table", interface.at("table")}};
      for (const auto& [direction, member] : {std::pair{"in", in}, std::pair{"out", out}}) {
        Labels all = labels;
        all.emplace_back("direction", direction);
        m.sample(interface.at(member), all);
      }
    }
  };
  each("mrib_multicast_packets_total", "Multicast packets that were forwarded, by interface.", "packetsIn",
       "packetsOut");
  each("mrib_multicast_bytes_total", "Bytes of multicast packets that were forwarded, by interface.",
       "bytesIn", "bytesOut");
}

}  // namespace

std::string metricsOf(const Json& status, const Json& check, const Json& interfaces) {
  Metrics metrics;
  addStatus(metrics, status);
  addMirror(metrics, status.at("mirror"));
  addExport(metrics, status.at("export"));
  addForwarding(metrics, check, summed(interfaces));
  return metrics.text();
}

}  // namespace host
