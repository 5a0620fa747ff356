#pragma once

#include <algorithm>
#include <set>
#include <string>
#include <vector>

#include "Target.h"

// Readers of what programs are to read, by the letter, and of no more than is written here.

namespace fuzz {

/// Takes a text apart from its beginning; what is not there aborts.
class Scanner {
 public:
  explicit Scanner(std::string_view text) : text_(text) {}

  bool isOver() const { return text_.empty(); }
  bool sees(std::string_view what) const { return text_.starts_with(what); }
  bool takes(std::string_view what) {
    const bool seen = sees(what);
    if (seen) text_.remove_prefix(what.size());
    return seen;
  }
  void expect(std::string_view what) { must(takes(what)); }
  /// What stands before `end`, which it takes as well.
  std::string_view until(std::string_view end) {
    const std::size_t at = text_.find(end);
    must(at != text_.npos);
    const std::string_view taken = text_.substr(0, at);
    text_.remove_prefix(at + end.size());
    return taken;
  }
  /// At least one character of a set.
  std::string_view word(std::string_view of) {
    const std::string_view taken = text_.substr(0, text_.find_first_not_of(of));
    must(!taken.empty());
    text_.remove_prefix(taken.size());
    return taken;
  }
  std::string_view name() { return word("abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789_-"); }
  std::string_view digits() { return word("0123456789"); }
  char next() {
    must(!text_.empty());
    const char c = text_.front();
    text_.remove_prefix(1);
    return c;
  }
  /// A text to the next quote, in which a backslash stands before one of `marked`.
  void quoted(std::string_view marked) {
    expect("\"");
    for (char c = next(); c != '"'; c = next()) {
      must(c != '\n');
      if (c == '\\') must(marked.find(next()) != marked.npos);
    }
  }

 private:
  std::string_view text_;
};

inline bool isAmong(std::string_view word, std::initializer_list<std::string_view> words) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

/// A picture for Graphviz: one statement a line.
inline void readDot(std::string_view text) {
  Scanner in(text);
  in.expect("digraph mrib {\n");
  while (!in.takes("}\n")) {
    in.expect("  ");
    const bool isOfAll = isAmong(in.name(), {"graph", "node", "edge"});
    if (!isOfAll && in.takes(" -> ")) in.name();
    in.expect(" [");
    do {
      const std::string_view key = in.name();
      must(isOfAll || isAmong(key, {"label", "style", "fillcolor", "class", "color", "fontcolor", "penwidth",
                                    "peripheries", "arrowhead"}));
      in.expect("=");
      in.sees("\"") ? in.quoted("\"\\n") : void(in.word("abcdefghijklmnopqrstuvwxyzLR0123456789."));
    } while (in.takes(", "));
    in.expect("];\n");
  }
  must(in.isOver());
}

/// A picture for Mermaid: what stands in quotes has no character of its own meaning.
inline void readMermaid(std::string_view text) {
  Scanner in(text);
  in.expect("flowchart LR\n");
  while (!in.isOver()) {
    Scanner line(in.until("\n"));
    line.expect("  ");
    if (line.takes("classDef ") || line.takes("linkStyle ")) continue;
    line.expect("n");
    line.digits();
    const bool isEdge = line.takes(" ");
    if (isEdge) {
      must(line.takes("-->") || line.takes("-.->") || line.takes("--x"));
    } else {
      line.word("([{");
    }
    if (!isEdge || line.takes("|")) {
      line.expect("\"");
      Scanner label(line.until("\""));
      while (!label.isOver()) {
        if (label.takes("<br/>")) continue;
        const char c = label.next();
        must(!isAmong(std::string_view(&c, 1), {"<", ">", "&", "\\", "`", ";"}));
        if (c == '#') must(!label.digits().empty() && label.takes(";"));
      }
      isEdge ? line.expect("|") : void(line.word(")]}"));
    }
    if (isEdge) {
      line.expect(" n");
      line.digits();
    } else {
      line.takes(":::fault");
    }
    must(line.isOver());
  }
}

/// A page: XML of known elements, whose attributes run nothing.
class PageReader {
 public:
  explicit PageReader(std::string_view text) : in_(text) {
    in_.expect("<!DOCTYPE html>\n");
    while (!in_.isOver()) in_.takes("<") ? tag() : character();
    must(open_.empty());
  }

 private:
  void character() {
    const char c = in_.next();
    must(c != '>' && c != '<');
    if (c == '&') entity();
  }
  void entity() {
    if (!in_.takes("#")) return must(isAmong(in_.until(";"), {"amp", "lt", "gt", "quot"}));
    in_.digits();
    in_.expect(";");
  }
  void attribute() {
    const std::string_view name = in_.word("abcdefghijklmnopqrstuvwxyzLBV-");
    must(!name.starts_with("on"));
    in_.expect("=\"");
    while (!in_.takes("\"")) character();
  }
  void tag() {
    if (in_.takes("/")) {
      must(!open_.empty() && open_.back() == in_.until(">"));
      return open_.pop_back();
    }
    const std::string_view name = in_.name();
    must(isAmong(name, {"html",       "head",  "meta", "title", "style", "body",    "a",       "header",
                        "h1",         "h2",    "h3",   "p",     "nav",   "ul",      "li",      "main",
                        "section",    "div",   "dl",   "dt",    "dd",    "span",    "table",   "caption",
                        "thead",      "tbody", "tr",   "th",    "td",    "details", "summary", "figure",
                        "figcaption", "pre",   "code", "br",    "svg",   "g",       "text"}));
    while (in_.takes(" ")) attribute();
    if (in_.takes("/>")) return;
    in_.expect(">");
    if (name == "style") {
      must(in_.until("</style>").find('<') == std::string_view::npos);
    } else {
      open_.push_back(name);
    }
  }

  Scanner in_;
  std::vector<std::string_view> open_;
};

/// Metrics, as Prometheus' text format has them: declared once, and each sample once.
inline void readMetrics(std::string_view text) {
  Scanner in(text);
  std::set<std::string_view> declared;
  std::set<std::string_view> samples;
  std::string_view current;
  while (!in.isOver()) {
    const std::string_view whole = in.until("\n");
    Scanner line(whole);
    if (line.takes("# HELP ")) {
      must(declared.insert(current = line.name()).second && line.takes(" "));
    } else if (line.takes("# TYPE ")) {
      must(line.name() == current && (line.takes(" gauge") || line.takes(" counter")) && line.isOver());
    } else {
      must(line.name() == current && samples.insert(whole.substr(0, whole.rfind(' '))).second);
      if (line.takes("{")) {
        do {
          line.name();
          line.expect("=");
          line.quoted("\\\"n");
        } while (line.takes(","));
        line.expect("}");
      }
      line.expect(" ");
      line.word("0123456789.e+-");
      must(line.isOver());
    }
  }
}

}  // namespace fuzz
