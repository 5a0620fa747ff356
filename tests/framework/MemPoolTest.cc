#include <gtest/gtest.h>

#include <algorithm>
#include <random>
#include <vector>

#include "Zan/MemPool.h"

namespace {

TEST(MemPool, HandsOutAsAtFirstWhenAllHaveComeBack) {
  constexpr std::size_t size = 496;  // which nobody else has
  constexpr int count = 1000;        // some chunks full
  const U64 used = Zan::ZanMemPool::bytesInUse();
  const auto take = [&] {
    std::vector<void*> objects;
    for (int i = 0; i < count; ++i) objects.push_back(Zan::ZanMemPool::allocate(size));
    return objects;
  };
  const auto first = take();
  if (Zan::ZanMemPool::bytesInUse() == used) {
    for (void* object : first) Zan::ZanMemPool::release(object, size);
    GTEST_SKIP() << "the sanitizer has the pool's place";
  }
  const U64 held = Zan::ZanMemPool::bytesHeld();
  auto back = first;
  std::shuffle(back.begin(), back.end(), std::mt19937(1));
  for (void* object : back) Zan::ZanMemPool::release(object, size);
  EXPECT_EQ(Zan::ZanMemPool::bytesInUse(), used);
  const auto second = take();
  EXPECT_EQ(second, first);
  EXPECT_EQ(Zan::ZanMemPool::bytesHeld(), held);
  for (void* object : second) Zan::ZanMemPool::release(object, size);
}

}  // namespace
