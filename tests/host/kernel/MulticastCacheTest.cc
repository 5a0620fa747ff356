#include <gtest/gtest.h>

#include "Error.h"
#include "MulticastCache.h"
#include "Saved.h"
#include "host/Folder.h"

// The cache as `ip` saves it; as the kernel tells it, with real packets: e2e/flows.py.

using namespace host::kernel;
using Lumo::IpAddr;

namespace {

TEST(MulticastCache, IsReadFromWhatWasSaved) {
  const Folder folder;
  folder.write("link.json",
               R"([{"ifindex":3,"ifname":"e1","flags":[]},{"ifindex":5,"ifname":"e2","flags":[]}])");
  folder.write("addr.json", "[]");
  folder.write("route.json", "[]");
  Mirror mirror({}, 0);
  readSaved(folder.path.string(), mirror);
  const std::vector<MulticastRoute> right{
      {253, IpAddr("10.1.0.2"), IpAddr("239.1.1.1"), true, 3, {5}, 5000000000, 7, 4},
      {10, IpAddr("10.9.9.9"), IpAddr("239.3.3.4"), true, 0, {}, 0, 0, 0},
      {253, IpAddr("10.1.0.2"), IpAddr("232.7.7.7"), false, 0, {}, 0, 0, 0}};
  folder.write("mroute.json", R"([{"src":"10.1.0.2","dst":"239.1.1.1","state":"resolved","iif":"e1",
"multipath":[{"oif":"e2"}],"packets":5000000000,"bytes":7,"wrong_if":4,"table":"default"},
{"src":"::","dst":"ff05::1","state":"resolved","iif":"e9"},
{"src":"10.9.9.9","dst":"239.3.3.4","iif":"unresolved","state":"resolved","table":"10"},
{"src":"10.1.0.2","dst":"232.7.7.7","iif":"unresolved","state":"unresolved"}])");
  const SavedMulticastCache cache(folder.path.string(), mirror);
  const auto reading = cache.read();
  EXPECT_FALSE(reading->step());
  EXPECT_EQ(reading->state().routes, right);
  std::filesystem::remove(folder.path / "mroute.json");
  EXPECT_THROW(cache.read()->step(), host::Error);
}

}  // namespace
