#pragma once

#include <string>
#include <string_view>
#include <vector>

/// Pieces of a page that is well-formed XML too, so that whatever reads it finds the same in it.
namespace host::output::html {

/// A sentence, of which no character is taken for a mark of the page or moves anything.
std::string text(std::string_view sentence);
/// A name from outside, as `mrib` prints it elsewhere.
std::string name(std::string_view outside);
/// The same, in the letters of code.
std::string code(std::string_view outside);
/// A word in a coloured field. Its kind is "good", "fair", "bad" or "plain".
std::string badge(std::string_view kind, std::string_view word);
/// A text of many lines as it is. Of more than some, the rest is counted.
std::string listing(std::string_view label, std::string_view content);

/// A table, of which a part is shown at once, a part on demand, and the rest is counted.
class Table {
 public:
  /// What each column is about. The first cell of a row is what the row is about.
  Table(std::string caption, std::vector<std::string> columns)
      : caption_(std::move(caption)), columns_(std::move(columns)) {}
  /// The cells are HTML.
  void row(const std::vector<std::string>& cells);
  /// Whether further rows are only counted.
  bool isFull() const;
  void countIs(std::size_t count) { count_ = count; }
  std::size_t count() const { return count_; }
  std::string html() const;

 private:
  std::string part(std::size_t first, std::size_t last) const;

  std::string caption_;
  std::vector<std::string> columns_;
  std::vector<std::string> rows_;
  std::size_t count_ = 0;
};

}  // namespace host::output::html
