#pragma once

#include <string>
#include <vector>

#include "Zan/Trace.h"

/// Collects every enabled message while it lives, with all levels of the engine's handles on.
class TraceRecorder {
 public:
  struct Message {
    std::string handle;
    U32 level;
    std::string text;
    U32 line;
    std::string function;
  };

  explicit TraceRecorder(U32 level = 9) {
    for (Zan::TraceHandle* h : Zan::TraceHandle::handles()) h->levelsUpToIs(level);
    Zan::traceSinkIs(&record, this);
  }
  ~TraceRecorder() { Zan::traceSinkIs(nullptr, nullptr); }
  TraceRecorder(const TraceRecorder&) = delete;
  TraceRecorder& operator=(const TraceRecorder&) = delete;

  std::vector<Message> messages;

  bool contains(const std::string& part) const { return count(part) > 0; }
  int count(const std::string& part) const {
    int n = 0;
    for (const Message& m : messages) n += m.text.find(part) != std::string::npos;
    return n;
  }

 private:
  static void record(void* self, const Zan::TraceMessage& m) {
    static_cast<TraceRecorder*>(self)->messages.push_back(
        {std::string(m.handle), m.level, std::string(m.text), m.line, std::string(m.function)});
  }
};
