#pragma once

extern "C" {
/// So many allocations succeed from now on; negative: all. The trie's and those of the shared-memory tables
/// count as well, where the program is linked with what it wraps.
void memory_left(long allocations);
/// How many allocations by `new` have not been given back.
long memory_in_use();
}
