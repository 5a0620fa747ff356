#pragma once

#include <stdlib.h>

#include <filesystem>
#include <fstream>
#include <string>

/// A folder that goes with this; in memory where that can be, since files are saved by way of the disk.
class Folder {
 public:
  Folder() {
    const std::filesystem::path memory = "/dev/shm";
    const bool isThere = std::filesystem::is_directory(memory);
    std::string pattern =
        ((isThere ? memory : std::filesystem::temp_directory_path()) / "mrib-test-XXXXXX").string();
    path = mkdtemp(pattern.data());
  }
  ~Folder() { std::filesystem::remove_all(path); }
  Folder(const Folder&) = delete;
  Folder& operator=(const Folder&) = delete;

  void write(const std::string& name, const std::string& text) const {
    std::ofstream(path / name, std::ios::binary) << text;
  }
  /// Writes a file, does `then`, and puts back what was there before.
  template <class Then>
  void with(const std::string& name, const std::string& text, Then then) const {
    std::ifstream in(path / name);
    const std::string before(std::istreambuf_iterator<char>(in), {});
    const bool wasThere = in.is_open();
    write(name, text);
    then();
    wasThere ? write(name, before) : static_cast<void>(std::filesystem::remove(path / name));
  }

  std::filesystem::path path;
};
