#include <gtest/gtest.h>
#include <linux/netlink.h>

#include "Describe.h"
#include "SimulatedKernel.h"

// The mirror's logic, on a clock of its own.

using namespace host::kernel;
using Kind = Mirror::Action::Kind;

namespace {

/// A simulated kernel and a mirror of it, with everything between them late.
class Pair {
 public:
  Pair(U32 seed, const Mirror::Settings& settings) : kernel(seed), mirror(settings, 0) {}

  void act() {
    const Mirror::Action action = mirror.next(now);
    if (action.kind == Kind::dump) kernel.startDump(action.dump, action.sequence);
  }
  void deliverEvent() {
    if (kernel.events.empty()) return;
    mirror.event(std::move(kernel.events.front()), now);
    kernel.events.pop_front();
  }
  void deliverAnswer() {
    if (kernel.answers.empty()) return;
    mirror.answered(std::move(kernel.answers.front()), now);
    kernel.answers.pop_front();
  }
  void loseEvents() {
    kernel.events.clear();
    mirror.lost(Reason::overrun, now);
  }
  void step(bool silence) {
    switch (kernel.pick(6)) {
      case 0:
        return kernel.change(silence);
      case 1:
        return deliverEvent();
      case 2:
        return kernel.dumpPart();
      case 3:
        return deliverAnswer();
      case 4:
        now += milliseconds(kernel.pick(20));
        return act();
      default:
        mirror.takeChanges(kernel.pick(4));
    }
  }
  /// Lets everything arrive, and the mirror do what it wants to. Never as long as to the next audit.
  void rest() {
    for (int i = 0; i < 300; ++i) {
      while (!kernel.events.empty()) deliverEvent();
      act();
      kernel.dumpPart();
      while (!kernel.answers.empty()) deliverAnswer();
      now += milliseconds(10);
    }
    mirror.takeChanges();
  }
  std::string wrong() { return difference(describe(mirror), describe(*kernel.mirrored())); }

  SimulatedKernel kernel;
  Mirror mirror;
  Nanos now = 0;
};

TEST(Mirror, AgreesWithItsKernelAfterAnyInterleaving) {
  for (U32 seed = 1; seed <= 150; ++seed) {
    Pair pair(seed, Mirror::Settings());
    for (int round = 0; round < 20; ++round) {
      for (int i = 0; i < 60; ++i) pair.step(true);
      if (round % 7 == 6) pair.loseEvents();
      pair.rest();
      ASSERT_EQ(pair.wrong(), "") << "seed " << seed << " round " << round;
      ASSERT_FALSE(pair.mirror.isStale());
    }
  }
}

TEST(Mirror, NeedsNoSecondDumpWhileEventsTellEverything) {
  Mirror::Settings settings;
  settings.schedule.coalesce = seconds(1000);
  for (U32 seed = 1; seed <= 500; ++seed) {
    Pair pair(seed, settings);
    pair.kernel.replaces = false;  // a replacement among several while a dump runs is a riddle
    for (int i = 0; i < 200; ++i) pair.step(false);
    pair.rest();
    ASSERT_EQ(pair.wrong(), "") << "seed " << seed;
    ASSERT_EQ(pair.mirror.counters().resyncs[static_cast<std::size_t>(Reason::start)], 1u);
  }
}

}  // namespace
