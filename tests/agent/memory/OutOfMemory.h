#pragma once

/// So many allocations succeed from now on, the trie's and those of the shared-memory tables included; then
/// one fails, or all do.
void memoryLeftIs(long allocations, bool once = false);
/// All succeed from now on. Whether they have since the last call of the other.
bool memoryIsThere();
/// How many allocations by `new` have not been given back.
long memoryInUse();
