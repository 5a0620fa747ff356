#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>

// What the fuzzer of this program's part has found interesting, and some random bytes.

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size);

TEST(Corpus, IsReadWithoutFault) {
  int files = 0;
  for (const auto& file : std::filesystem::directory_iterator(MRIB_CORPUS)) {
    std::ifstream in(file.path(), std::ios::binary);
    const std::vector<char> bytes(std::istreambuf_iterator<char>(in), {});
    LLVMFuzzerTestOneInput(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    ++files;
  }
  EXPECT_GT(files, 0);
  std::mt19937 random(1);
  for (int run = 0; run < 200; ++run) {
    std::vector<std::uint8_t> bytes(random() % 400);
    for (auto& byte : bytes) byte = static_cast<std::uint8_t>(random());
    LLVMFuzzerTestOneInput(bytes.data(), bytes.size());
  }
}
