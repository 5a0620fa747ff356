#pragma once

#include <nlohmann/json.hpp>

#include "Backend.h"
#include "Commands.h"

/// What the command prints: documents for programs, text for people.
namespace host {

inline constexpr int schemaVersion = 2;

/// On standard output, at once. Throws Error.
void print(const std::string& text);

/// Into a file, which is the old one until it is the whole new one; without a name, and for -, as above.
void put(const std::string& file, const std::string& text);

/// In ASCII, so that nothing in it moves a terminal; with a negative indent on one line.
std::string dump(const Json& document, int indent);

/// Words of a configuration, for a request. Throws UsageError for bytes that are no UTF-8, which it can't
/// hold.
std::string configurationText(const std::string& argument);

/// An answer as the command prints it: with who gave it.
Json documentOf(const Backend& backend, const Json& answer);

/// The exit code of an answer that may be stale.
int codeOf(const Request& request, bool isStale, int code = found);

/// A document with long lists, printed while their parts come: JSON has one element a line.
class Listing {
 public:
  using PartText = std::function<std::string(const Json&)>;

  Listing(const Request& request, Backend& backend) : request_(request), backend_(backend) {}

  /// Prints a list; in text, by what `text` makes of its parts. Returns how many elements it had.
  std::size_t list(const std::string& method, const Json& parameters, const char* name, const PartText& text);
  /// Ends the document.
  void end() const;
  bool isStale() const { return head_.value("stale", false); }
  /// What stands before the first list.
  const Json& head() const { return head_; }

 private:
  void begin(const Json& part, const char* name);

  const Request& request_;
  Backend& backend_;
  bool begun_ = false;
  Json head_ = Json::object();
};

}  // namespace host
