#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <random>

#include "EngineWorld.h"
#include "TraceRecorder.h"
#include "plain/PlainMrib.h"

// Random events on the engine and on the plain model: after every event state and traces must be equal. The
// generator makes what agents make, and drops what they must not (the model says so).

namespace {

using Lumo::IntfId;
using Lumo::IpAddr;
using Lumo::IpGenPrefix;
using Routing::Fib::RouteType;
using EngineRpf = Routing::Multicast::Rib::Rpf;

const std::vector<const char*> connectedPool{"20.0.0.0/24", "20.0.0.128/25", "30.0.0.0/24", "30.1.0.0/16",
                                             "40.0.0.0/8",  "40.1.0.0/16",   "0.0.0.0/0",   "50.0.0.0/24"};
const std::vector<const char*> configPool{
    "10.0.0.0/8",  "10.1.0.0/16", "10.1.1.0/24", "60.0.0.0/8",  "60.1.0.0/16", "70.0.0.0/8", "70.7.0.0/16",
    "80.0.0.0/12", "0.0.0.0/0",   "40.1.1.0/24", "20.0.0.0/16", "30.0.0.0/24", "",           "2001:db8::/32"};
const std::vector<const char*> addressPool{
    "20.0.0.5", "20.0.0.200", "30.0.0.9", "30.1.2.3", "40.9.9.9", "40.1.1.7", "10.1.1.1", "10.9.9.9",
    "60.1.1.1", "60.9.9.9",   "70.7.7.7", "70.1.1.1", "80.0.0.1", "99.9.9.9", "50.0.0.1", "20.0.9.9"};
const std::vector<int> preferencePool{1, 2, 3, 200};
constexpr U32 intfCount = 5;

/// How the engine goes about a refresh: in whole passes with every trace, in whole passes without, or with
/// the marked prefixes alone. It ends in the same state.
enum class Way { traced, whole, marked };

class Driver {
 public:
  explicit Driver(U64 seed) : random_(seed) {
    for (U32 id = 1; id <= intfCount; ++id) {
      if (chance(80)) intfIs(id);
      if (chance(80)) addressIs(id);
    }
    for (int i = 0; i < 3; ++i) unicast(false);
    for (auto n = random_() % 40; n > 0; --n) configure();
  }

  void start(Way way) {
    if (way == Way::traced) recorder_ = std::make_unique<TraceRecorder>();
    std::vector<IpGenPrefix> order;
    world_.urib->routeStatus()->forEach([&](const Quarn::Fib::Route& r) { order.emplace_back(r.prefix); });
    plain::PlainMrib trial(model_);
    const IpGenPrefix last = world_.unicastTrie->changedRoute();
    trial.traces.clear();
    trial.start(order, last);
    model_ = std::move(trial);
    world_.start();
    world_.mrib->routeResolver()->wholePassesIs(way == Way::whole);
    started_ = true;
  }

  void step() {
    model_.traces.clear();
    if (recorder_) recorder_->messages.clear();
    switch (random_() % 10) {
      case 0:
      case 1:
      case 2:
        unicast(true);
        break;
      case 3: {
        const U32 id = intf();
        chance(60) ? addressIs(id) : addressDel(id);
        break;
      }
      case 4: {
        const U32 id = intf();
        chance(60) ? intfIs(id) : intfDel(id);
        break;
      }
      default:
        configure();
    }
  }

  /// Where model and engine differ; empty when they do not.
  std::string difference() const {
    const auto& real = recorder_ ? recorder_->messages : noTraces_;
    for (std::size_t i = 0; recorder_ && i < std::max(real.size(), model_.traces.size()); ++i) {
      const std::string a = i < real.size()
                                ? real[i].handle + " " + std::to_string(real[i].level) + " " + real[i].text
                                : "nothing";
      const auto& m = model_.traces;
      const std::string b =
          i < m.size() ? m[i].handle + " " + std::to_string(m[i].level) + " " + m[i].text : "nothing";
      if (a != b)
        return "trace " + std::to_string(i) + "\n engine: " + a + "\n model:  " + b + "\nafter " + event_;
    }
    const std::string a = state(), b = model_.state();
    return a == b ? "" : "state\nengine:\n" + a + "model:\n" + b + "after " + event_;
  }
  U32 traced() const { return static_cast<U32>(model_.traces.size()); }

 private:
  bool chance(U32 percent) { return random_() % 100 < percent; }
  template <class T>
  const T& pick(const std::vector<T>& pool) {
    return pool[random_() % pool.size()];
  }
  U32 intf() { return 1 + static_cast<U32>(random_() % intfCount); }

  /// Applies an event to the model, and to the engine unless the model refuses it.
  void apply(const std::string& name, const std::function<void(plain::PlainMrib&)>& onModel,
             const std::function<void()>& onEngine) {
    plain::PlainMrib trial(model_);
    try {
      onModel(trial);
    } catch (const plain::Forbidden&) {
      return;
    }
    event_ = name;
    model_ = std::move(trial);
    onEngine();
  }

  void intfIs(U32 id) {
    if (model_.intfs.contains(id)) return;
    const std::string name = 'e' + std::to_string(id) + '.' + std::to_string(++objects_);
    apply(
        "interface " + name,
        [&](auto& m) {
          m.intfs[id] = {objects_, name};
        },
        [&] { world_.intfIs(id, name); });
  }
  void intfDel(U32 id) {
    apply(
        "no interface", [&](auto& m) { m.intfs.erase(id); },
        [&] { world_.intfDir->intfStatusDel(IntfId(id)); });
  }
  void addressIs(U32 id) {
    const std::string address = pick(addressPool);
    apply(
        "address " + address, [&](auto& m) { m.addresses[id] = IpAddr(address); },
        [&] { world_.intfAddrIs(id, address); });
  }
  void addressDel(U32 id) {
    apply(
        "no address", [&](auto& m) { m.addresses.erase(id); },
        [&] { world_.ipStatus->intfAddrDel(IntfId(id)); });
  }

  void unicast(bool mayDelete) {
    const std::string text = pick(connectedPool);
    const IpGenPrefix prefix(text);
    const bool connected = chance(75);
    if (mayDelete && model_.unicastRoute(prefix) && chance(60)) {
      apply(
          "unicast " + text + " deleted",
          [&](auto& m) {
            std::erase_if(m.unicast, [&](const auto& u) { return u.prefix == prefix; });
            if (started_) m.unicastChanged(prefix);
          },
          [&] { world_.unicastDel(text); });
      return;
    }
    plain::UnicastRoute route{prefix, connected, static_cast<int>(random_() % 4), {}};
    std::vector<EngineWorld::Hop> hops;
    for (auto n = random_() % 3; n > 0; --n) {
      hops.push_back({chance(50) ? "0.0.0.0" : "20.0.0.77", intf()});
      route.vias.emplace_back(IpAddr(hops.back().address), hops.back().intf);
    }
    apply(
        "unicast " + text + (connected ? " connected" : ""),
        [&](auto& m) {
          std::erase_if(m.unicast, [&](const auto& u) { return u.prefix == prefix; });
          m.unicast.push_back(route);
          if (started_) m.unicastChanged(prefix);
        },
        [&] {
          world_.unicastIs(text, connected ? RouteType::connected : RouteType::igp,
                           static_cast<U8>(route.preference), hops);
        });
  }

  void configure() {
    const std::string text = pick(configPool);
    const IpGenPrefix prefix(text);
    const int preference = pick(preferencePool);
    const auto u8 = static_cast<U8>(preference);
    const auto* entry = model_.entry(prefix);
    if (!entry) {
      apply(
          "prefix " + text, [&](auto& m) { m.prefixAdded(prefix); }, [&] { world_.config->routeIs(prefix); });
      entry = model_.entry(prefix);
    } else if (chance(8)) {
      apply(
          "no prefix " + text,
          [&](auto& m) {
            if (started_) return m.prefixDeleted(prefix);
            std::erase_if(m.config, [&](const auto& e) { return e.prefix == prefix; });
          },
          [&] { world_.config->routeDel(prefix); });
      return;
    }
    if (!entry->prefs.contains(preference)) {
      apply(
          "preference " + text + " " + std::to_string(preference),
          [&](auto& m) {
            if (started_) return m.preferenceAdded(prefix, preference);
            m.entry(prefix)->prefs.try_emplace(preference);
          },
          [&] { world_.config->route(prefix)->prefIs(u8); });
    } else if (chance(15)) {
      apply(
          "no preference " + text + " " + std::to_string(preference),
          [&](auto& m) {
            if (started_) return m.preferenceDeleted(prefix, preference);
            m.entry(prefix)->prefs.erase(preference);
          },
          [&] { world_.config->route(prefix)->prefDel(u8); });
      return;
    }
    const auto& held = model_.entry(prefix)->prefs.at(preference);
    if (!held.empty() && chance(40)) {
      const plain::Rpf rpf = *std::next(held.begin(), static_cast<std::ptrdiff_t>(random_() % held.size()));
      apply(
          "no rpf " + text + " " + std::to_string(preference) + " " + rpf.text(),
          [&](auto& m) {
            if (started_) return m.rpfDeleted(prefix, preference, rpf);
            m.entry(prefix)->prefs.at(preference).erase(rpf);
          },
          [&] { world_.rpfDel(text, u8, engineRpf(rpf)); });
      return;
    }
    plain::Rpf rpf;
    rpf.type = chance(30) ? 1 : 2;
    if (rpf.type == 1) rpf.intf = intf();
    if (rpf.type == 2) rpf.address = IpAddr(pick(addressPool));
    apply(
        "rpf " + text + " " + std::to_string(preference) + " " + rpf.text(),
        [&](auto& m) {
          if (started_) return m.rpfAdded(prefix, preference, rpf);
          m.entry(prefix)->prefs.at(preference).insert(rpf);
        },
        [&] { world_.rpfIs(text, u8, engineRpf(rpf)); });
  }

  static EngineRpf engineRpf(const plain::Rpf& rpf) {
    return rpf.type == 1 ? EngineRpf::ofIntf(IntfId(rpf.intf))
                         : EngineRpf::ofAddr(Lumo::IpGenAddr(rpf.address));
  }

  /// The engine's state in the words of the model.
  std::string state() const {
    std::string t;
    std::map<IpGenPrefix, std::string> sets;
    for (auto r = world_.mribStatus->routeIterator(); r; ++r) {
      t += world_.show(r->prefix().stringValue());
      t.pop_back();
      if (r->viaCount() > 0) t += ",";
      for (std::size_t at = 0; (at = t.find(", ", at)) != t.npos;) t.erase(at + 1, 1);
      t += "] {";
      for (auto s = r->prefixSetIterator(); s; ++s) t += (*s)->lPrefix().stringValue() + ",";
      t += "}\n";
    }
    for (auto s = world_.mrib->routeResolver()->mribForPrefixIterator(); s; ++s) {
      std::string& members = sets[s->mribForPrefix()->lPrefix()];
      for (auto m = s->mribForPrefix()->prefixIterator(); m; ++m) (members += ' ') += m->stringValue();
    }
    for (const auto& [lpm, members] : sets) t += "set " + lpm.stringValue() + ":" + members + "\n";
    const auto& builder = *world_.mrib->trieBuilder();
    t += "trie";
    std::set<IpGenPrefix> pool;
    for (const char* p : connectedPool) pool.insert(IpGenPrefix(p));
    for (const char* p : configPool) pool.insert(IpGenPrefix(p));
    U32 stored = 0;
    for (const IpGenPrefix& p : pool) {
      if (!builder.trie()->route(p)) continue;
      (t += ' ') += p.stringValue();
      ++stored;
    }
    EXPECT_EQ(static_cast<U32>(builder.trie()->nodes()), stored);
    EXPECT_EQ(builder.routeCount(), world_.mribStatus->routeCount());
    return t + "\ndeleted " + std::to_string(builder.deletedPreference()) + " updates " +
           std::to_string(builder.trieUpdates()) + "\n";
  }

  std::mt19937_64 random_;
  EngineWorld world_;
  plain::PlainMrib model_;
  std::unique_ptr<TraceRecorder> recorder_;
  const std::vector<TraceRecorder::Message> noTraces_;
  std::string event_;
  bool started_ = false;
  int objects_ = 0;
};

class EngineRandomTest : public testing::TestWithParam<std::tuple<U64, Way>> {};
INSTANTIATE_TEST_SUITE_P(Seeds, EngineRandomTest,
                         testing::Combine(testing::Range(U64{1}, U64{41}),
                                          testing::Values(Way::traced, Way::whole, Way::marked)));

TEST_P(EngineRandomTest, DoesWhatThePlainModelDoes) {
  const auto [seed, way] = GetParam();
  Driver driver(seed);
  driver.start(way);
  ASSERT_EQ(driver.difference(), "") << "seed " << seed << " at start";
  U64 traced = 0;
  for (int step = 0; step < 600; ++step) {
    driver.step();
    ASSERT_EQ(driver.difference(), "") << "seed " << seed << " step " << step;
    traced += driver.traced();
  }
  EXPECT_GT(traced, 10000u) << "the events reach the engine";
}

}  // namespace
