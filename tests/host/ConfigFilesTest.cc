#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <unistd.h>

#include <csignal>

#include "ConfigReader.h"
#include "ConfigSave.h"
#include "ConfigText.h"
#include "Folder.h"

// Configurations on the disk.

namespace {

namespace fs = std::filesystem;

class ConfigFilesTest : public testing::Test {
 protected:
  std::string at(const std::string& name) const { return (dir / name).string(); }
  void write(const std::string& name, const std::string& text) {
    fs::create_directories((dir / name).parent_path());
    folder.write(name, text);
  }
  std::string text(const std::string& name) const {
    std::ifstream in(dir / name, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), {}};
  }
  /// What is wrong with a file, or its running configuration; D is the folder of the test.
  std::string read(const std::string& path) const {
    std::string result;
    try {
      result = host::textOf(host::readConfiguration(path));
    } catch (const host::ConfigurationError& e) {
      result = e.what();
    }
    for (std::size_t i = 0; (i = result.find(dir.string(), i)) != result.npos;)
      result.replace(i, dir.string().size(), 1, 'D');
    return result;
  }

  const Folder folder;
  const fs::path& dir = folder.path;
};

TEST_F(ConfigFilesTest, IncludesFilesAndFolders) {
  write("main.conf", "include \"mrib.d\"\ninclude sub/x.txt\nip mroute 4.0.0.0/8 e\n");
  write("mrib.d/20.conf", "ip mroute 2.0.0.0/8 e\n");
  write("mrib.d/10.conf", "ip mroute 1.0.0.0/8 e");
  write("mrib.d/.30.conf", "x");
  write("mrib.d/30.conf~", "x");
  write("sub/x.txt", "include y.txt");
  write("sub/y.txt", "ip mroute 3.0.0.0/8 e\n");
  EXPECT_EQ(read(at("main.conf")),
            "ip mroute 1.0.0.0/8 e\nip mroute 2.0.0.0/8 e\nip mroute 3.0.0.0/8 e\nip mroute 4.0.0.0/8 e\n");
  const auto c = host::readConfiguration(at("main.conf"));
  EXPECT_EQ(c.files.size(), 5u);
  EXPECT_EQ(c.placeOf(c.mroutes[2].origin), at("sub/y.txt") + ":1");
  EXPECT_EQ(c.placeOf(c.mroutes[3].origin), at("main.conf") + ":3");

  write("sub/y.txt",
        "\nip mroute 1.0.0.0/8 e 1\ninclude ../mrib.d/20.conf\ninclude \"no\x1B\"\ninclude ..\n");
  EXPECT_EQ(read(at("main.conf")),
            "D/sub/y.txt:2:1: the same route stands in D/mrib.d/10.conf:1\n"
            "D/sub/y.txt:3:9: D/sub/../mrib.d/20.conf: it is included in D/main.conf:1 already\n"
            "D/sub/y.txt:4:12: unexpected control byte \\x1B\n"
            "D/sub/y.txt:5:9: D/sub/../main.conf: it includes itself in a circle: D/main.conf:2 -> "
            "D/sub/x.txt:1 -> D/sub/y.txt:5 -> D/main.conf");
  write("sub/x.txt", "ip multicast rpf-lookup-mode mrib-only");
  write("mrib.d/20.conf", "ip multicast rpf-lookup-mode urib-only\ninclude none\\.conf\ninclude 50.conf");
  fs::create_directory(at("mrib.d/50.conf"));
  EXPECT_EQ(read(at("main.conf")),
            "D/mrib.d/20.conf:2:9: D/mrib.d/none\\\\.conf: can't read it: No such file or directory\n"
            "D/main.conf:1:9: D/mrib.d/50.conf: can't read it: it is a directory, not a file\n"
            "D/sub/x.txt:1:1: the mode stands in D/mrib.d/20.conf:1 already");
}

TEST_F(ConfigFilesTest, WhatIsNoConfigurationIsRefusedAtOnce) {
  for (int i = 0; i < 20; ++i) write(std::to_string(i), "include " + std::to_string(i + 1));
  EXPECT_EQ(read(at("0")), "D/15:1:9: includes are nested more than 16 deep");
  for (int i = 0; i < 1000; ++i) write("many/" + std::to_string(i) + ".conf", "");
  write("many.conf", "include many");
  EXPECT_EQ(read(at("many.conf")),
            "D/many.conf:1:9: D/many/999.conf: too many: a configuration has at most 1000 files");
  fs::create_directory(at("empty"));
  std::string includes;
  for (int i = 0; i < 1001; ++i) includes += "include empty\n";
  write("often.conf", includes);
  EXPECT_EQ(read(at("often.conf")),
            "D/often.conf:1001:9: too many: a configuration includes at most 1000 times");
  EXPECT_EQ(read(at("none\n")), "D/none\\x0A: can't read it: No such file or directory");
  EXPECT_EQ(read("/dev/null"), "");
  EXPECT_EQ(read("/proc/self/mem"), "/proc/self/mem: can't read it: Input/output error");
  write("zeros", "");
  fs::resize_file(at("zeros"), 1u << 30);
  const std::string tooLong = "too long: a configuration has at most 64 MiB, all of its files together";
  EXPECT_EQ(read(at("zeros")), "D/zeros: " + tooLong);
  write("half", "! " + std::string(40u << 20, 'x') + "\ninclude other");
  write("other", "! " + std::string(40u << 20, 'x'));
  EXPECT_EQ(read(at("half")), "D/half:2:9: D/other: " + tooLong);
}

TEST_F(ConfigFilesTest, SavingReplacesAllOrNothing) {
  host::save(at("new.conf"), "a\n");
  EXPECT_EQ(text("new.conf"), "a\n");
  chmod(at("new.conf").c_str(), 0640);
  fs::create_symlink("sub", at("folder"));
  fs::create_directory(at("sub"));
  fs::create_symlink("../folder/link2", at("sub/link"));
  fs::create_symlink(at("new.conf"), at("sub/link2"));
  host::save(at("sub/link"), "b\n");
  EXPECT_EQ(text("new.conf"), "b\n");
  EXPECT_TRUE(fs::is_symlink(at("sub/link")) && fs::is_symlink(at("sub/link2")));
  struct stat status {};
  ASSERT_EQ(stat(at("new.conf").c_str(), &status), 0);
  EXPECT_EQ(status.st_mode & 07777, 0640u);

  // The disk is full in the middle of it.
  rlimit before{};
  getrlimit(RLIMIT_FSIZE, &before);
  const rlimit small{100000, before.rlim_max};
  const auto handler = std::signal(SIGXFSZ, SIG_IGN);
  setrlimit(RLIMIT_FSIZE, &small);
  EXPECT_THROW(host::save(at("new.conf"), std::string(200000, 'x')), host::Error);
  setrlimit(RLIMIT_FSIZE, &before);
  std::signal(SIGXFSZ, handler);
  EXPECT_EQ(text("new.conf"), "b\n");
  EXPECT_THROW(host::save(at("sub"), "c"), host::Error);
  EXPECT_THROW(host::save(at("none/x"), "c"), host::Error);
  EXPECT_EQ(std::distance(fs::directory_iterator(dir), {}), 3) << "no temporary file stays";
}

}  // namespace
