#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>

#include "KernelFuzz.h"

namespace {

TEST(KernelCorpus, IsReadWithoutFault) {
  int files = 0;
  for (const auto& entry : std::filesystem::directory_iterator(MRIB_CORPUS "/kernel")) {
    std::ifstream in(entry.path(), std::ios::binary);
    const std::string bytes(std::istreambuf_iterator<char>(in), {});
    kernelFuzz(reinterpret_cast<const std::uint8_t*>(bytes.data()), bytes.size());
    ++files;
  }
  EXPECT_GT(files, 0);
}

}  // namespace
