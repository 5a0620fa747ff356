#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "ReflectionFuzz.h"

namespace {

TEST(Corpus, ReplaysWhatTheFuzzerHasFoundInteresting) {
  int replayed = 0;
  for (const auto& file : std::filesystem::directory_iterator(MRIB_CORPUS "/reflection")) {
    std::ifstream in(file.path(), std::ios::binary);
    const std::vector<char> bytes(std::istreambuf_iterator<char>(in), {});
    reflectionFuzz(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    ++replayed;
  }
  EXPECT_GT(replayed, 10);
}

TEST(Corpus, AndSomeRandomBytes) {
  std::mt19937 random(1);
  for (int run = 0; run < 200; ++run) {
    std::vector<std::uint8_t> bytes(random() % 400);
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
    reflectionFuzz(bytes.data(), bytes.size());
  }
}

}  // namespace
