#include "ConfigEdit.h"

#include <algorithm>
#include <tuple>

#include "ConfigStatement.h"
#include "ConfigText.h"
#include "MrouteIndex.h"

namespace host {

namespace {

class Editor {
 public:
  explicit Editor(const Configuration& before)
      : config_(before), index_(config_.mroutes), gone_(before.mroutes.size(), false) {
    for (const MrouteLine& line : config_.mroutes) {
      if (line.origin >> 32 == 0) lastOrigin_ = std::max(lastOrigin_, line.origin);
    }
  }

  void apply(const std::string& command) {
    try {
      apply(parseStatement(command, Grammar::command));
    } catch (const Fault& fault) {
      errors_.push_back({"command " + quoted(command), 0, fault.column, fault.text});
    }
  }

  Configuration take() {
    if (!errors_.empty()) throw ConfigurationError(std::move(errors_));
    std::size_t place = 0;
    std::erase_if(config_.mroutes, [&](const MrouteLine&) { return gone_[place++]; });
    return std::move(config_);
  }

 private:
  void apply(Statement&& s) {
    if (s.kind == Statement::Kind::none) throw Fault{1, "expected \"ip\" or \"no\""};
    if (s.kind == Statement::Kind::lookupMode) return s.no ? resetLookupMode() : setLookupMode(s.lookupMode);
    if (s.kind == Statement::Kind::exportTable) return setExportTable(s);
    if (!s.no) return add(std::move(s.mroute));
    if (!s.hasPreference) return removeAll(std::move(s.mroute));
    if (!remove(s.mroute)) throw Fault{1, "there is no such route"};
  }
  void add(MrouteLine&& line) {
    const U32 same = index_.find(line);
    if (same != MrouteIndex::none) {
      throw Fault{1, "the same route stands in " + config_.placeOf(config_.mroutes[same].origin)};
    }
    line.origin = ++lastOrigin_;
    config_.mroutes.push_back(std::move(line));
    gone_.push_back(false);
    index_.enter(static_cast<U32>(gone_.size()) - 1);
  }
  static bool names(const MrouteLine& line, const MrouteLine& known) {
    return line.neighbor == Lumo::IpAddr() || line.neighbor == known.neighbor;
  }
  bool remove(const MrouteLine& line) {
    const U32 place = index_.find(line);
    if (place == MrouteIndex::none || !names(line, config_.mroutes[place])) return false;
    index_.remove(line);
    gone_[place] = true;
    return true;
  }
  void removeAll(MrouteLine&& line) {
    bool any = false;
    for (U32 preference = 1; preference <= 255; ++preference) {
      line.preference = static_cast<U8>(preference);
      any = remove(line) || any;
    }
    if (!any) throw Fault{1, "there is no such route"};
  }
  void setExportTable(const Statement& s) {
    if (s.no && !config_.exportTable) throw Fault{1, "no table is exported"};
    config_.exportTable = s.no ? std::nullopt : std::optional(s.exportTable);
  }
  void setLookupMode(LookupMode mode) { config_.lookupMode = mode; }
  void resetLookupMode() {
    const LookupMode byDefault = Configuration{}.lookupMode;
    if (config_.lookupMode == byDefault) {
      throw Fault{1, "the mode is the default already, " + std::string(nameOf(byDefault))};
    }
    config_.lookupMode = byDefault;
  }

  Configuration config_;
  MrouteIndex index_;
  std::vector<bool> gone_;  // by place
  U64 lastOrigin_ = 0;      // of those from the command line
  std::vector<ConfigError> errors_;
};

/// The lines of one configuration that the other does not have, by prefix, RPF, preference and neighbour.
std::vector<const MrouteLine*> missing(const std::vector<MrouteLine>& lines,
                                       const std::vector<MrouteLine>& others) {
  const MrouteIndex other(others);
  std::vector<const MrouteLine*> found;
  for (const MrouteLine& line : lines) {
    const U32 place = other.find(line);
    if (place == MrouteIndex::none || others[place].neighbor != line.neighbor) found.push_back(&line);
  }
  std::sort(found.begin(), found.end(), [](const MrouteLine* a, const MrouteLine* b) {
    return std::tie(a->prefix, a->rpf, a->preference) < std::tie(b->prefix, b->rpf, b->preference);
  });
  return found;
}

}  // namespace

Configuration edited(const Configuration& before, std::span<const std::string> commands) {
  Editor editor(before);
  for (const std::string& command : commands) editor.apply(command);
  return editor.take();
}

Difference differenceOf(const Configuration& before, const Configuration& after) {
  Difference d;
  if (before.lookupMode != after.lookupMode) d.lookupMode = {before.lookupMode, after.lookupMode};
  const auto gone = missing(before.mroutes, after.mroutes);
  const auto added = missing(after.mroutes, before.mroutes);
  auto g = gone.begin();
  auto a = added.begin();
  while (g != gone.end() && a != added.end()) {
    const auto left = std::tie((*g)->prefix, (*g)->rpf);
    const auto right = std::tie((*a)->prefix, (*a)->rpf);
    if (left < right) {
      d.gone.push_back(**g++);
    } else if (right < left) {
      d.added.push_back(**a++);
    } else {
      d.changed.push_back({**g++, **a++});
    }
  }
  for (; g != gone.end(); ++g) d.gone.push_back(**g);
  for (; a != added.end(); ++a) d.added.push_back(**a);
  return d;
}

}  // namespace host
