#include "ConfigError.h"

#include <fmt/format.h>

#include <algorithm>

#include "Escape.h"

namespace host {

std::string ConfigError::message() const {
  std::string message = place;
  if (line != 0) message += fmt::format(":{}", line);
  if (column != 0) message += fmt::format(":{}", column);
  return message + ": " + text;
}

ConfigurationError::ConfigurationError(std::vector<ConfigError> errors)
    : Error(fmt::format("{}", fmt::join(messagesOf(errors), "\n"))), errors_(std::move(errors)) {}

std::vector<std::string> messagesOf(const std::vector<ConfigError>& errors) {
  const std::size_t printed = std::min(errors.size(), ConfigurationError::mostPrinted);
  std::vector<std::string> all;
  for (std::size_t i = 0; i < printed; ++i) all.push_back(errors[i].message());
  const std::size_t more = errors.size() - printed;
  if (more > 0) all.push_back(fmt::format("and {} more error{}", more, more == 1 ? "" : "s"));
  return all;
}

std::string quoted(std::string_view word) {
  constexpr std::size_t longest = 64;
  if (word.size() <= longest) return fmt::format("\"{}\"", escaped(word));
  std::size_t end = longest;  // not within a character
  while (end > longest - 3 && (static_cast<unsigned char>(word[end]) & 0xC0) == 0x80) --end;
  return fmt::format("\"{}...\"", escaped(word.substr(0, end)));
}

}  // namespace host
