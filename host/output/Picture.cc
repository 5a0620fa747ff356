#include "Picture.h"

#include <fmt/format.h>

#include <cstdlib>

namespace host::output {

namespace {

constexpr double pixelsAPoint = 96.0 / 72.0;

/// Removes each piece of a text from one mark to the end of another.
void eraseAll(std::string& text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != text.npos;) {
    const std::size_t end = text.find(to, at);
    text.erase(at, end == text.npos ? end : end + to.size() - at);
  }
}

}  // namespace

std::string inlineSvg(const std::string& svg, const std::string& describedBy) {
  const std::size_t start = svg.find("<svg");
  if (start == svg.npos) return "";
  std::string text = svg.substr(start);
  eraseAll(text, "<!--", "-->");
  eraseAll(text, "<title>", "</title>");  // of each node, and no words for people
  const std::string width = "width=\"";
  const std::size_t at = text.find(width);
  const double pixels =
      at == text.npos ? 0 : std::strtod(text.c_str() + at + width.size(), nullptr) * pixelsAPoint;
  text.insert(4, fmt::format(" role=\"img\" aria-labelledby=\"{}\" style=\"--width: {:.0f}px\"", describedBy,
                             pixels));
  return text;
}

}  // namespace host::output
