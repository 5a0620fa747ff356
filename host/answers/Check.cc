#include "Check.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <map>

#include "Decision.h"
#include "Escape.h"
#include "Explanation.h"
#include "KernelVerdict.h"

namespace host {

using kernel::MulticastRoute;
using Lumo::IpAddr;

namespace {

bool contains(const std::vector<U32>& links, U32 link) {
  return std::find(links.begin(), links.end(), link) != links.end();
}

std::vector<U32> expectedFor(const RpfAnswer& rpf) {
  std::vector<U32> links;
  const auto take = [&](const auto& hops) {
    for (const auto& hop : hops) links.push_back(hop.link);
  };
  if (rpf.status != RpfAnswer::Status::found) return links;
  if (rpf.route) {
    take(rpf.route->nextHops);
  } else {
    take(rpf.answer->hops);
  }
  return links;
}

void add(std::string& text, const std::string& more) {
  if (!more.empty()) text += (text.empty() ? "" : "; ") + more;
}

/// Asks for the settings of an interface once: thousands of flows may come in by it.
class SettingsOnce : public kernel::ReversePath {
 public:
  explicit SettingsOnce(const kernel::ReversePath& kernel) : kernel_(kernel) {}

  std::optional<kernel::PacketSettings> settings(const kernel::Link& link) const override {
    const auto known = settings_.find(link.index);
    return known != settings_.end() ? known->second : settings_[link.index] = kernel_.settings(link);
  }
  std::optional<kernel::SourceRoute> routeTo(IpAddr source, const kernel::Link& link) const override {
    return kernel_.routeTo(source, link);
  }

 private:
  const kernel::ReversePath& kernel_;
  mutable std::map<U32, std::optional<kernel::PacketSettings>> settings_;
};

}  // namespace

U32 multicastTableOf(const kernel::Mirror& mirror) {
  for (const auto& [index, entry] : mirror.topology().links.all()) {
    if (entry.value.link.vrfTable == mirror.settings().table) return entry.value.link.vrfTable;
  }
  return kernel::defaultMulticastTable;
}

std::string_view nameOf(Verdict verdict) {
  constexpr std::array<std::string_view, verdictCount> names{
      "wrong", "notFollowed", "dropped",    "noRpf",      "unresolved",
      "right", "anySource",   "registered", "otherTable", "gone"};
  return names[static_cast<std::size_t>(verdict)];
}

FlowCheck::FlowCheck(const Router& router, const Context& context, const Interfaces& interfaces, Nanos now)
    : router_(router),
      interfaces_(interfaces),
      kernel_(context.kernel ? std::make_unique<SettingsOnce>(*context.kernel) : nullptr),
      exported_(context.exported),
      now_(now),
      table_(multicastTableOf(router.mirror())) {}

FlowAnswer FlowCheck::judge(const MulticastRoute& route, std::optional<Growth> growth) const {
  if (route.table != table_) return {Verdict::otherTable, {}, ""};
  if (route.source == IpAddr()) return {Verdict::anySource, {}, acceptedText(route)};
  const RpfAnswer rpf = router_.lookUp(Lumo::IpGenAddr(route.source));
  FlowAnswer answer{Verdict::right, expectedFor(rpf), ""};
  const kernel::MulticastInterface* in = interface(route.in);
  if (answer.expected.empty()) {
    answer.verdict = Verdict::noRpf;
    answer.why = explain(router_, Lumo::IpGenAddr(route.source), std::nullopt, nullptr).conclusion;
  } else if (!route.resolved) {
    answer.verdict = Verdict::unresolved;
    answer.why =
        "packets wait, and no routing daemon has said where they go" + notForwarding(answer.expected);
  } else if (in && in->registers) {
    answer.verdict = Verdict::registered;
  } else if (contains(answer.expected, route.in)) {
    judgeRight(route, growth, answer);
  } else {
    blame(route, rpf, answer);
  }
  return answer;
}

/// What is counted is better evidence of what the kernel drops than what it says it would.
void FlowCheck::judgeRight(const MulticastRoute& route, std::optional<Growth> growth,
                           FlowAnswer& answer) const {
  const U64 wrong = growth ? growth->wrong : 0;
  const bool passes = growth && growth->packets > wrong;
  if (!passes) answer.why = droppedText(route.source, route.in);
  if (!answer.why.empty()) {
    answer.verdict = Verdict::dropped;
  } else if (wrong > 0 && !passes) {
    answer.verdict = Verdict::wrong;
    answer.why = fmt::format("all packets of late ({}) came in by other interfaces; {}", wrong,
                             mustText(route.source));
  } else if (wrong > 0) {
    answer.why = fmt::format("{} packets came in by other interfaces as well", wrong);
  }
}

/// Of an entry whose packets are taken from an interface that the MRIB does not say.
void FlowCheck::blame(const MulticastRoute& route, const RpfAnswer& rpf, FlowAnswer& answer) const {
  answer.verdict = Verdict::wrong;
  if (route.in == 0) answer.why = "the interface that its packets were taken from is no more";
  const Exporter::Entry* entry = exported_ && rpf.route ? exported_->entry(rpf.route->prefix) : nullptr;
  if (entry && entry->right && now_ >= entry->writtenAt + patience) {
    answer.verdict = Verdict::notFollowed;
    const bool isOlder = entry->why == Exporter::Why::none;
    add(answer.why,
        fmt::format(
            "FRR does not follow the exported table, which has said {} {}", namesOf(answer.expected),
            isOlder ? "from the start" : fmt::format("for {} s", (now_ - entry->writtenAt) / seconds(1))));
  }
  add(answer.why, mustText(route.source));
  answer.why += notForwarding(answer.expected);
}

/// Why the kernel's own check drops packets; empty when it does not. What the router sends itself it does not
/// check.
std::string FlowCheck::droppedText(IpAddr source, U32 link) const {
  if (!kernel_) return "";
  const KernelVerdict verdict = kernelVerdict(router_, *kernel_, source, link);
  if (!verdict.drops() || verdict.cause == KernelVerdict::Cause::ownAddress) return "";
  const std::string change =
      verdict.change.empty() ? "" : "; `" + escaped(verdict.change) + "` would change it";
  return fmt::format("the kernel drops its packets on {}: {}{}", escaped(verdict.interface), verdict.why,
                     change);
}

std::string FlowCheck::mustText(IpAddr source) const {
  const Decision decision = decisionFor(router_, Lumo::IpGenAddr(source));
  return fmt::format("packets must come in by {}: {}", interfacesText(decision.ways),
                     decidingText(router_, decision));
}

std::string FlowCheck::namesOf(const std::vector<U32>& links) const {
  std::vector<kernel::Hop> hops;
  for (const U32 link : links) hops.push_back({{}, link, 0});
  return host::namesOf(router_, hops);
}

const kernel::MulticastInterface* FlowCheck::interface(U32 link) const {
  const auto it = std::find_if(interfaces_.begin(), interfaces_.end(),
                               [&](const auto& i) { return i.link == link && i.table == table_; });
  return it == interfaces_.end() ? nullptr : &*it;
}

/// Of links that packets may come in by none of which forwards multicast.
std::string FlowCheck::notForwarding(const std::vector<U32>& links) const {
  const bool isAny = std::any_of(links.begin(), links.end(), [&](U32 link) { return interface(link); });
  if (isAny || interfaces_.empty()) return "";
  return "; no routing daemon has made " + namesOf(links) + " an interface of multicast forwarding";
}

/// Where an entry for any source takes packets from, and a proxy entry sends them.
std::string FlowCheck::acceptedText(const MulticastRoute& route) const {
  if (route.group != IpAddr()) return "packets of any source are taken from " + namesOf({route.in});
  return fmt::format("a proxy entry: packets of any source and group from {} go to {}", namesOf(route.out),
                     namesOf({route.in}));
}

}  // namespace host
