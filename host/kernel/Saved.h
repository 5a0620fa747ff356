#pragma once

#include <string>

#include "Mirror.h"

namespace host::kernel {

/// Fills a mirror from what `ip` saved in a folder: link.json, addr.json and route.json (`ip -j link`, ...),
/// and, where they are there, nexthop.json and route6.json (`ip -j -6 route`). Without nexthop.json, routes
/// by next-hop objects lead to what route.json says of them. Throws Error, with file, place and what was
/// expected, for anything that is not such output.
void readSaved(const std::string& folder, Mirror& mirror);

}  // namespace host::kernel
