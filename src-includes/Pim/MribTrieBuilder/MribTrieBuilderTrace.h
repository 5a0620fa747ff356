#pragma once

#include "Zan/Trace.h"

namespace Routing::Multicast::Rib {

/// The trace handle "MribTrieBuilder" of both trie builders.
extern Zan::TraceHandle mribTrieBuilderTrace;

}  // namespace Routing::Multicast::Rib
