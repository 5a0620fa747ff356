#include "Target.h"
#include "model/TrieAndScan.h"

// Reads the bytes as changes of a trie, which must know what a linear scan finds.

namespace {

void run(fuzz::Bytes bytes) {
  fuzz::Dice dice(bytes);
  constexpr U32 widths[] = {8, 32, 128};
  trie::TrieAndScan both(dice, widths[dice() % 3]);
  while (!dice.isOver()) fuzz::must(both.step(5));
  fuzz::must(both.empty());
}

const fuzz::Target target("trie", run);

}  // namespace
