#include <gtest/gtest.h>

#include <cstdlib>
#include <random>

#include "mrib/Agent.h"
#include "plain/PlainMrib.h"

// Random search for the exactness of the circle check, with the plain model as judge: what the agent accepts
// must never be followed for ever, under any connected routes and in any order of changes; what it refuses
// must be for some. More configurations with MRIB_CONFIGURATIONS in the environment.

namespace {

using Lumo::IpAddr;
using Lumo::IpGenAddr;
using Lumo::IpGenPrefix;
using Lumo::Prefix;

/// Nested and apart, so that they cover each other, and addresses within them.
const std::vector<const char*> prefixPool{"10.0.0.0/8",  "10.1.0.0/16", "10.1.1.0/24", "10.1.1.1/32",
                                          "20.0.0.0/8",  "20.1.0.0/16", "20.1.1.0/24", "30.0.0.0/8",
                                          "30.1.0.0/16", "0.0.0.0/0",   "10.2.0.0/16", "16.0.0.0/4"};
const std::vector<const char*> addressPool{"10.1.1.1", "10.1.1.2", "10.1.2.1", "10.2.1.1",
                                           "10.3.1.1", "20.1.1.1", "20.1.2.1", "20.2.1.1",
                                           "30.1.1.1", "30.2.1.1", "99.1.1.1", "17.1.1.1"};
constexpr U32 linkCount = 2;
constexpr int mostTries = 20000;  // nearly all of those that are refused recurse within some ten

struct Line {
  int preference;
  plain::Rpf rpf;
  auto operator<=>(const Line&) const = default;
};
struct Configuration {
  std::map<IpGenPrefix, std::set<Line>> prefixes;
  std::map<U32, IpAddr> addresses;  // of the interfaces
};

using Random = std::mt19937_64;
bool chance(Random& random, U32 percent) {
  return random() % 100 < percent;
}
template <class T>
const T& pick(Random& random, const std::vector<T>& pool) {
  return pool[random() % pool.size()];
}

Configuration someConfiguration(Random& random) {
  Configuration c;
  for (U32 i = 1; i <= linkCount; ++i) c.addresses[i] = IpAddr(pick(random, addressPool));
  for (auto n = 2 + random() % 3; n > 0; --n) {
    auto& lines = c.prefixes[IpGenPrefix(pick(random, prefixPool))];
    for (auto k = 1 + random() % (chance(random, 30) ? 3 : 1); k > 0; --k) {
      Line line{chance(random, 70) ? 1 : 2, {}};
      line.rpf.type = chance(random, 15) ? 1 : 2;
      if (line.rpf.type == 1) line.rpf.intf = 1 + static_cast<U32>(random() % linkCount);
      if (line.rpf.type == 2) line.rpf.address = IpAddr(pick(random, addressPool));
      lines.insert(line);
    }
  }
  return c;
}

/// What the agent says of it: accepted without holding anything back.
class Check {
 public:
  bool accepts(const Configuration& c) {
    mrib::Transaction t;
    for (const auto& [intf, address] : c.addresses) {
      t.linkDel(intf);
      t.link({intf, nameOf(intf)});
      t.address({intf, IpGenAddr(address)});
    }
    t.mrouteDelAll();
    for (const auto& [prefix, lines] : c.prefixes) {
      for (const Line& line : lines) {
        mrib::Mroute m{prefix, IpGenAddr(line.rpf.address), static_cast<U32>(line.preference)};
        if (line.rpf.type == 1) m.rpf = nameOf(line.rpf.intf);
        t.mroute(m);
      }
    }
    if (!agent_.commit(t)) return false;
    for (const mrib::Unresolved& u : agent_.unresolved()) {
      if (u.reason == mrib::Reason::heldBack) return false;
    }
    return true;
  }

 private:
  static std::string nameOf(U32 intf) { return 'e' + std::to_string(intf); }
  mrib::Agent agent_;
};

/// A history of the model: connected routes come and go, and prefixes of the configuration, whole or in part.
class History {
 public:
  History(const Configuration& c, Random& random) : c_(c), random_(random) {
    model_.addressTables[0] = c.addresses;
    for (U32 i = 1; i <= linkCount; ++i)
      model_.intfTables[0][i] = {static_cast<int>(i), 'e' + std::to_string(i)};
    for (const auto& [prefix, lines] : c.prefixes) {
      connectable_.push_back(prefix);
      for (const Line& line : lines) {
        const IpAddr a = line.rpf.type == 1 ? c.addresses.at(line.rpf.intf) : line.rpf.address;
        for (const U32 length : {32u, 31u, 25u, 16u, 8u, 3u}) connectable_.push_back(IpGenPrefix(a, length));
      }
    }
    model_.start({}, {});
  }

  /// Empty while all goes well; else what the model must not be led to.
  std::string run(int events) {
    try {
      for (int i = 0; i < events; ++i) step();
    } catch (const plain::Forbidden& e) {
      return e.what();
    }
    return "";
  }

 private:
  void step() {
    model_.traces.clear();
    if (chance(random_, 50)) return connect(pick(random_, connectable_));
    const auto at =
        std::next(c_.prefixes.begin(), static_cast<std::ptrdiff_t>(random_() % c_.prefixes.size()));
    configure(at->first, at->second);
  }
  void connect(const IpGenPrefix& prefix) {
    if (model_.unicastRoute(prefix)) {
      std::erase_if(model_.unicast, [&](const auto& u) { return u.prefix == prefix; });
    } else {
      model_.unicast.push_back({prefix, true, 0, {{IpAddr(), 1 + static_cast<U32>(random_() % linkCount)}}});
    }
    model_.unicastChanged(prefix);
  }
  void configure(const IpGenPrefix& prefix, const std::set<Line>& lines) {
    if (model_.entry(prefix)) {
      model_.prefixDeleted(prefix);
      if (chance(random_, 30)) return;
    }
    model_.prefixAdded(prefix);
    for (auto line = lines.rbegin(); line != lines.rend(); ++line) {
      model_.preferenceAdded(prefix, line->preference);
      model_.rpfAdded(prefix, line->preference, line->rpf);
    }
  }

  const Configuration& c_;
  Random& random_;
  plain::PlainMrib model_;
  std::vector<IpGenPrefix> connectable_;
};

TEST(CircleSearch, AcceptsJustWhatIsNeverFollowedForEver) {
  const char* more = std::getenv("MRIB_CONFIGURATIONS");
  const U64 configurations = more ? std::strtoull(more, nullptr, 10) : 4000;
  Check check;
  U64 refused = 0, harmless = 0;
  for (U64 seed = 1; seed <= configurations; ++seed) {
    Random random(seed);
    const Configuration c = someConfiguration(random);
    if (check.accepts(c)) {
      ASSERT_EQ(History(c, random).run(40), "") << "seed " << seed;
      continue;
    }
    ++refused;
    bool recurses = false;
    for (int tries = 0; tries < mostTries && !recurses; ++tries)
      recurses = !History(c, random).run(40).empty();
    if (!recurses) std::cout << ++harmless << " refused without need? seed " << seed << '\n';
  }
  std::cout << configurations << " configurations, " << refused << " refused, " << harmless
            << " without need\n";
  EXPECT_LE(harmless * 1000, refused);
}

}  // namespace
