#pragma once

#include <map>

#include "host/Folder.h"

namespace fuzz {

/// A folder whose files nobody else writes: what one holds already is not written again.
class MemoryFolder : public Folder {
 public:
  void write(const std::string& name, const std::string& text) {
    const auto [file, isNew] = files_.try_emplace(name);
    if (!isNew && file->second == text) return;
    file->second = text;
    Folder::write(name, text);
  }

 private:
  std::map<std::string, std::string> files_;
};

}  // namespace fuzz
