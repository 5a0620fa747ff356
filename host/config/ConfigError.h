#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "Error.h"
#include "Zan/Types.h"

namespace host {

/// One thing that is wrong with a configuration.
struct ConfigError {
  std::string place;  ///< a file, or a command with what it says; escaped
  U32 line = 0;       ///< from 1; 0: it is about the whole of the place
  U32 column = 0;     ///< from 1, in bytes; 0: it is about the whole of the line
  std::string text;   ///< escaped

  /// "FILE:LINE:COLUMN: text", without the numbers that there are not.
  std::string message() const;
};

/// A configuration is not taken, with all that is wrong with it.
class ConfigurationError : public Error {
 public:
  static constexpr std::size_t mostPrinted = 20;

  /// There is at least one error.
  explicit ConfigurationError(std::vector<ConfigError> errors);
  const std::vector<ConfigError>& errors() const { return errors_; }

 private:
  std::vector<ConfigError> errors_;
};

/// The messages of some errors: at most `ConfigurationError::mostPrinted`, then how many more.
std::vector<std::string> messagesOf(const std::vector<ConfigError>& errors);

/// A word from outside as messages quote it: escaped, and cut when it is longer than 64 bytes.
std::string quoted(std::string_view word);

}  // namespace host
