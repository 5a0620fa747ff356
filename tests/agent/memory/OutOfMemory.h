#pragma once

/// So many allocations succeed from now on, the trie's and those of the shared-memory tables included;
/// negative: all.
void memoryLeftIs(long allocations);
/// How many allocations by `new` have not been given back.
long memoryInUse();
