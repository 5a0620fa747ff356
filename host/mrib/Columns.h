#pragma once

#include <algorithm>
#include <array>
#include <string>
#include <vector>

namespace host::text {

/// Lines of a table, made while its rows come: columns are as wide as the first rows need, or later ones.
/// Those without a text are left out.
template <std::size_t N>
class Columns {
 public:
  using Row = std::array<std::string, N>;

  std::vector<std::string> lines(const std::vector<Row>& rows) {
    for (const Row& row : rows) {
      for (std::size_t i = 0; i < N; ++i) widths_[i] = std::max(widths_[i], row[i].size());
    }
    std::vector<std::string> lines;
    for (const Row& row : rows) lines.push_back(line(row));
    return lines;
  }

 private:
  std::string line(const Row& row) const {
    std::string text;
    for (std::size_t i = 0; i < N; ++i) {
      if (widths_[i] != 0) text += row[i] + std::string(widths_[i] + 2 - row[i].size(), ' ');
    }
    return text.substr(0, text.find_last_not_of(' ') + 1) + '\n';
  }

  std::array<std::size_t, N> widths_{};
};

}  // namespace host::text
