#include "Html.h"

#include <fmt/format.h>

#include <algorithm>

#include "Escape.h"
#include "GraphText.h"

namespace host::output::html {

namespace {

constexpr std::size_t rowsAtOnce = 50;
constexpr std::size_t mostRows = 2000;
constexpr std::size_t mostLines = 2000;

std::string marked(const std::string& plain) {
  std::string out;
  for (const char c : plain) {
    switch (c) {
      case '&':
        out += "&amp;";
        break;
      case '<':
        out += "&lt;";
        break;
      case '>':
        out += "&gt;";
        break;
      case '"':
        out += "&quot;";
        break;
      case '\'':
        out += "&#39;";
        break;
      default:
        out += c;
    }
  }
  return out;
}

}  // namespace

std::string text(std::string_view sentence) {
  return marked(harmless(sentence));
}

std::string name(std::string_view outside) {
  return marked(escaped(outside));
}

std::string code(std::string_view outside) {
  return "<code>" + name(outside) + "</code>";
}

std::string badge(std::string_view kind, std::string_view word) {
  return fmt::format(R"(<span class="badge {}">{}</span>)", kind, text(word));
}

std::string listing(std::string_view label, std::string_view content) {
  std::string lines;
  std::size_t count = 0;
  while (!content.empty()) {
    const std::size_t end = std::min(content.find('\n'), content.size());
    if (count++ < mostLines) lines += text(content.substr(0, end)) + '\n';
    content.remove_prefix(std::min(end + 1, content.size()));
  }
  std::string out =
      fmt::format(R"(<div class="scroll" role="region" aria-label="{}" tabindex="0"><pre>{}</pre></div>)",
                  text(label), lines);
  if (count > mostLines)
    out += fmt::format("<p class=\"more\">And {}.</p>", counted(count - mostLines, "more line"));
  return out + '\n';
}

// ---- Tables ----

bool Table::isFull() const {
  return rows_.size() >= mostRows;
}

void Table::row(const std::vector<std::string>& cells) {
  if (isFull()) return;
  std::string row = "<tr>";
  for (std::size_t i = 0; i < cells.size(); ++i) {
    row += i == 0 ? "<th scope=\"row\">" + cells[i] + "</th>" : "<td>" + cells[i] + "</td>";
  }
  rows_.push_back(row + "</tr>\n");
  count_ = std::max(count_, rows_.size());
}

std::string Table::part(std::size_t first, std::size_t last) const {
  const std::string caption = text(caption_) + (first == 0 ? "" : ", continued");
  std::string out = fmt::format(
      "<div class=\"scroll\" role=\"region\" aria-label=\"{0}\" "
      "tabindex=\"0\"><table><caption>{0}</caption>\n"
      "<thead><tr>",
      caption);
  for (const std::string& column : columns_) out += "<th scope=\"col\">" + text(column) + "</th>";
  out += "</tr></thead>\n<tbody>\n";
  for (std::size_t i = first; i < last; ++i) out += rows_[i];
  return out + "</tbody></table></div>\n";
}

std::string Table::html() const {
  std::string out = part(0, std::min(rows_.size(), rowsAtOnce));
  if (rows_.size() > rowsAtOnce) {
    out += fmt::format("<details><summary>{}</summary>\n{}</details>\n",
                       counted(rows_.size() - rowsAtOnce, "more row"), part(rowsAtOnce, rows_.size()));
  }
  if (count_ > rows_.size()) {
    out += fmt::format("<p class=\"more\">And {} that the report leaves out.</p>\n",
                       counted(count_ - rows_.size(), "more", "more"));
  }
  return out;
}

}  // namespace host::output::html
