#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

#include "../fuzz/Target.h"

// What the fuzzers of this program's targets have found interesting, also damaged, and some random bytes.

TEST(Corpus, IsReadWithoutFault) {
  for (const fuzz::Target& target : fuzz::Target::all()) {
    int files = 0;
    std::mt19937 random(1);
    for (const auto& file :
         std::filesystem::directory_iterator(std::filesystem::path(MRIB_CORPUS) / target.name)) {
      std::ifstream in(file.path(), std::ios::binary);
      std::vector<U8> bytes(std::istreambuf_iterator<char>(in), {});
      target.run(bytes);
      for (int damage = 0; damage < 50 && !bytes.empty(); ++damage) {
        bytes[random() % bytes.size()] = static_cast<U8>(random());
        target.run(std::span(bytes).first(random() % bytes.size()));
      }
      ++files;
    }
    EXPECT_GT(files, 0) << target.name;
    for (int run = 0; run < 200; ++run) {
      std::vector<U8> bytes(random() % 400);
      for (U8& byte : bytes) byte = static_cast<U8>(random());
      target.run(bytes);
    }
  }
}
