#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <memory>
#include <random>
#include <set>

#include "Zan/Hash.h"
#include "Zan/HashMap.h"
#include "Zan/RbTreeMap.h"
#include "Zan/SortedSet.h"

namespace {

struct Key {
  int value;
  U64 hash() const { return Zan::mix(static_cast<U64>(value), 0); }
  friend bool operator==(Key, Key) = default;
  friend bool operator<(Key a, Key b) { return a.value < b.value; }
};

std::function<void(int)> onLeft;  // hears the keys of the members that leave, when there is one

template <class K, template <class> class Link>
struct Member : Zan::VFPtrInterface, Link<Member<K, Link>> {
  explicit Member(int k) : key{k} {}
  K fwkKey() const { return key; }
  void zanLeft() {
    if (onLeft) onLeft(key.value);
  }
  K key;
};
using Hashed = Member<Key, Zan::HashMember>;
using Ordered = Member<Key, Zan::RbTreeMember>;

class CollectionsTest : public testing::TestWithParam<unsigned> {};
INSTANTIATE_TEST_SUITE_P(Seeds, CollectionsTest, testing::Range(1u, 6u));

/// Hashes that differ in few of their first bits, so that an index must go deep to tell the members apart.
struct NarrowKey {
  int value;
  U64 hash() const { return Zan::mix(static_cast<U64>(value), 0) & ~(U64{0x7FF} << 44); }
  friend bool operator==(NarrowKey, NarrowKey) = default;
};
using Narrow = Member<NarrowKey, Zan::HashMember>;

/// Grows by `count` random members with a loss for every fourth, is emptied to a few, and grows again.
template <class M, class K>
void growAndShrink(unsigned seed, int count) {
  std::mt19937 random(seed);
  Zan::HashMap<M, K> hash(seed % 2 ? 0 : 100);
  Zan::RbTreeMap<Ordered, Key> tree;
  Zan::SortedSet<int> sorted;
  std::map<int, int> reference;  // and when each was inserted
  int inserted = 0;
  const auto check = [&] {
    ASSERT_EQ(hash.size(), reference.size());
    ASSERT_EQ(sorted.size(), reference.size());
    ASSERT_EQ(tree.size(), reference.size());
    auto i = sorted.iterator();
    auto inTree = tree.iterator();
    for (const auto& [key, when] : reference) {
      ASSERT_TRUE(hash.lookup({key}));
      ASSERT_EQ(*i, key);
      ASSERT_EQ(inTree->key.value, key);
      ++i;
      ++inTree;
    }
    ASSERT_FALSE(i || inTree);
    int last = -1;
    for (auto inHash = hash.iterator(); inHash; ++inHash) {
      ASSERT_LT(last, reference.at(inHash->key.value)) << "in the order of insertion";
      last = reference.at(inHash->key.value);
    }
    for (int n = 0; n < 1000; ++n) {
      const int key = static_cast<int>(random() % (1 << 20));
      ASSERT_EQ(hash.lookup({key}) != nullptr, reference.contains(key));
      ASSERT_EQ(tree.lookup({key}) != nullptr, reference.contains(key));
      const auto next = reference.lower_bound(key);
      const auto from = sorted.iterator(key);
      ASSERT_EQ(static_cast<bool>(from), next != reference.end());
      if (from) {
        ASSERT_EQ(*from, next->first);
      }
    }
  };
  const auto loseOne = [&] {
    const auto at = reference.lower_bound(static_cast<int>(random() % (1 << 20)));
    const int key = (at == reference.end() ? reference.begin() : at)->first;
    EXPECT_TRUE(hash.erase(K{key}));
    EXPECT_TRUE(tree.erase(Key{key}));
    EXPECT_TRUE(sorted.erase(key));
    reference.erase(key);
  };
  for (const std::size_t rest : {std::size_t{5}, std::size_t{0}}) {
    for (int n = 0; n < count; ++n) {
      const int key = static_cast<int>(random() % (1 << 20));
      if (!reference.emplace(key, ++inserted).second) continue;
      hash.insert(Zan::create<M>(key));
      tree.insert(Zan::create<Ordered>(key));
      ASSERT_TRUE(sorted.insert(key));
      ASSERT_FALSE(sorted.insert(key));
      if (n % 4 == 0 || n > count / 4 * 3) loseOne();  // at last one for each that comes
    }
    check();
    while (reference.size() > rest) {
      loseOne();
      if (reference.size() == 700) check();
    }
    check();
  }
}

TEST_P(CollectionsTest, StayExactWhileTheyGrowLargeAndShrink) {
  growAndShrink<Hashed, Key>(GetParam(), 60000);
  growAndShrink<Narrow, NarrowKey>(GetParam(), 6000);
}

TEST_P(CollectionsTest, SortedSetsAreWalkedUpwardsWhateverHappens) {
  std::mt19937 random(GetParam());
  for (int round = 0; round < 50; ++round) {
    Zan::SortedSet<int> set;
    std::set<int> reference;
    const auto change = [&] {
      const int key = static_cast<int>(random() % 1000);
      if (random() % 3 != 0) {
        EXPECT_EQ(set.insert(key), reference.insert(key).second);
      } else {
        EXPECT_EQ(set.erase(key), reference.erase(key) == 1);
      }
    };
    for (auto n = random() % (round % 5 ? 600 : 4); n > 0; --n) change();
    auto at = set.iterator();
    for (int last = -1; at;) {
      ASSERT_GT(*at, last);
      last = *at;
      for (auto n = random() % 4; n > 0; --n) change();
      if (random() % 4 == 0) {
        EXPECT_EQ(set.erase(last), reference.erase(last) == 1);
      }
      if (random() % 200 == 0) set.clear(), reference.clear();
      const auto next = reference.upper_bound(last);
      ++at;
      ASSERT_EQ(static_cast<bool>(at), next != reference.end())
          << "seed " << GetParam() << " round " << round;
      if (at) {
        ASSERT_EQ(*at, *next) << "seed " << GetParam() << " round " << round;
      }
    }
    EXPECT_FALSE(++at || set.iterator(1000));
  }
}

/// Walks while members at random places come and go; what stays from start to end is met exactly once.
template <class M, class Map>
void walkThroughChanges(unsigned seed) {
  std::mt19937 random(seed);
  for (int round = 0; round < 200; ++round) {
    Map map;
    std::set<int> stayed;
    EXPECT_FALSE(++map.iterator());
    for (int k = 0; k < 30; ++k) {
      map.insert(Zan::create<M>(k * 2));
      stayed.insert(k * 2);
    }
    std::map<int, int> met;
    auto i = map.iterator();
    for (; i; ++i) {
      ++met[i->key.value];
      const auto what = random() % 4;
      if (what == 0) {
        stayed.erase(i->key.value);
        const auto erased = i.erase();
        EXPECT_TRUE(erased);
        EXPECT_FALSE(i) << "reads as empty until it moves on";
      }
      for (auto n = random() % 3; n > 0; --n) {
        const int other = static_cast<int>(random() % 60);
        if (map.erase(Key{other})) {
          stayed.erase(other);
        } else if (other % 2 == 1) {
          map.insert(Zan::create<M>(other));
        }
      }
      if (random() % 50 == 0) {
        map.eraseAll();
        stayed.clear();
      }
    }
    EXPECT_FALSE(++i);
    for (const int key : stayed) EXPECT_EQ(met[key], 1) << "seed " << seed << " round " << round;
  }
}

TEST_P(CollectionsTest, IteratorsSurviveEveryRemoval) {
  walkThroughChanges<Hashed, Zan::HashMap<Hashed, Key>>(GetParam());
  walkThroughChanges<Ordered, Zan::RbTreeMap<Ordered, Key>>(GetParam());
}

// ---- Handlers and hosts that do what nobody should ----

template <class Map>
class CarelessCollection : public testing::Test {
 protected:
  using Member = std::remove_pointer_t<decltype(std::declval<Map>().lookup(Key{}))>;
  ~CarelessCollection() override { onLeft = nullptr; }
  void fill(int count) {
    for (int k = 0; k < count; ++k) map->insert(Zan::create<Member>(k));
  }
  std::unique_ptr<Map> map = std::make_unique<Map>();
};
using BothMaps = testing::Types<Zan::HashMap<Hashed, Key>, Zan::RbTreeMap<Ordered, Key>>;
TYPED_TEST_SUITE(CarelessCollection, BothMaps);

TYPED_TEST(CarelessCollection, TellsAMemberOnceThatItLeavesAndNobodyOfItsOwnEnd) {
  std::vector<int> left;
  onLeft = [&](int key) { left.push_back(key); };
  this->fill(20);
  this->map->erase(this->map->lookup(Key{7})->key);  // the key is inside the member that goes
  this->map->erase(this->map->lookup(Key{3}));
  this->map->iterator().erase();
  EXPECT_EQ(left, (std::vector<int>{7, 3, 0}));
  this->map->eraseAll();
  EXPECT_EQ(left.size(), 20u);
  this->fill(1);
  auto i = this->map->iterator();
  this->map = nullptr;
  EXPECT_EQ(left.size(), 20u);
  EXPECT_FALSE(i || ++i) << "an iterator outlives its collection";
}

TYPED_TEST(CarelessCollection, DeletesAllThatAreThereAndKeepsWhatHandlersAdd) {
  using V = typename TestFixture::Member;
  TypeParam other;
  for (const int count : {1, 3, 20}) {
    this->fill(count);
    onLeft = [&](int k) {
      if (k >= 1000) return;
      this->map->insert(Zan::create<V>(1000 + k));
      if (k == 1) this->map->erase(Key{count - 1});  // the last one goes early
      if (k == 5) this->map->erase(Key{1003});
      if (k == 6) other.insert(this->map->erase(Key{8}));
    };
    this->map->eraseAll();
    EXPECT_EQ(this->map->size(), count == 20 ? 19u : static_cast<U32>(count));
    EXPECT_FALSE(this->map->lookup({0}));
    EXPECT_TRUE(this->map->lookup({1000}));
    onLeft = nullptr;
    this->map->eraseAll();
  }
}

TYPED_TEST(CarelessCollection, GoesWhileAMemberLeaves) {
  for (const int which : {0, 1, 2}) {
    this->map = std::make_unique<TypeParam>();
    this->fill(20);
    auto behind = this->map->iterator();
    onLeft = [&](int) { this->map = nullptr; };
    if (which == 0) this->map->eraseAll();
    if (which == 1) this->map->erase(Key{3});
    if (which == 2) behind.erase();
    EXPECT_FALSE(this->map || behind || behind.erase() || ++behind);
  }
}

TYPED_TEST(CarelessCollection, StopsAtAMemberOfAnotherOne) {
  using V = typename TestFixture::Member;
  TypeParam other;
  for (const int count : {3, 20}) {
    this->fill(count);
    const Zan::Ptr<V> member(this->map->lookup({1})), stranger = Zan::create<V>(1);
    EXPECT_DEATH(other.insert(member), "`member && !member->isInCollection\\(\\)' failed");
    EXPECT_DEATH(this->map->insert(member), "isInCollection");
    EXPECT_DEATH(this->map->insert(nullptr), "isInCollection");
    EXPECT_DEATH(this->map->insert(stranger), "`!lookup\\(member->fwkKey\\(\\)\\)' failed");
    EXPECT_DEATH(this->map->erase(stranger.get()), "`lookup\\(member->fwkKey\\(\\)\\) == member' failed");
    EXPECT_DEATH(other.erase(member.get()), "lookup\\(member->fwkKey\\(\\)\\) == member");
    other.insert(this->map->erase(Key{0}));
    other.eraseAll();
    this->map->eraseAll();
  }
}

}  // namespace
