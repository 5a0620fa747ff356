#include "Zan/Trace.h"

#include "Zan/Exception.h"

namespace Zan {

namespace {

struct Stream {
  TraceSink write = nullptr;
  void* user = nullptr;
};
constinit Stream sink;
constinit Stream coverage;

std::vector<TraceHandle*>& registry() {
  static std::vector<TraceHandle*> all;
  return all;
}

}  // namespace

void traceSinkIs(TraceSink write, void* user) {
  sink = {write, user};
  TraceHandle::updateAll();
}

void coverageStreamIs(TraceSink stream, void* user) {
  coverage = {stream, user};
  TraceHandle::updateAll();
}

TraceHandle::TraceHandle(std::string_view name, bool enabledByDefault)
    : name_(name), enabled_(enabledByDefault) {
  registry().push_back(this);
  update();
}

TraceHandle::~TraceHandle() {
  std::erase(registry(), this);
}

void TraceHandle::refuseLevel() {
  throwRangeException("Zan::TraceHandle::level > 30 not allowed");
}

void TraceHandle::enabledIs(bool enabled) {
  enabled_ = enabled;
  update();
}

void TraceHandle::levelEnabledIs(U32 level, bool enabled) {
  const U32 bit = U32{1} << checked(level);
  levels_ = enabled ? levels_ | bit : levels_ & ~bit;
  update();
}

void TraceHandle::levelsUpToIs(U32 level) {
  levels_ = (U32{2} << checked(level)) - 1;
  update();
}

void TraceHandle::update() {
  const U32 traced = enabled_ && sink.write ? levels_ & ~coverageBit : 0;
  interest_.store(traced | (coverage.write ? coverageBit : 0), std::memory_order_relaxed);
}

void TraceHandle::updateAll() {
  for (TraceHandle* h : registry()) h->update();
}

TraceHandle* TraceHandle::find(std::string_view name) {
  for (TraceHandle* h : registry()) {
    if (h->name() == name) return h;
  }
  return nullptr;
}

const std::vector<TraceHandle*>& TraceHandle::handles() {
  return registry();
}

void traceHelper(std::string_view handleName, const PtrInterface* context, std::string_view text, U32 level,
                 bool enabled, std::string_view file, U32 line, std::string_view function) {
  TraceHandle::checked(level);
  const TraceMessage message{handleName, context, text, level, enabled, file, line, function};
  if (enabled && sink.write) sink.write(sink.user, message);
  if (coverage.write) coverage.write(coverage.user, message);
}

}  // namespace Zan
