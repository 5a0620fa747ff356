#include "ConfigFile.h"

#include <fmt/format.h>

#include <charconv>
#include <fstream>
#include <map>
#include <optional>
#include <sstream>
#include <tuple>

#include "Error.h"
#include "Escape.h"
#include "Zan/Exception.h"

namespace host {

namespace {

struct Word {
  std::string text;
  U32 column;
  bool quoted;
};

/// A fault in one line, thrown to the loop over the lines.
struct Fault {
  U32 column;
  std::string text;
};

bool isBlank(char c) {
  return c == ' ' || c == '\t';
}

std::optional<unsigned> hexByte(std::string_view digits) {
  unsigned value = 0;
  const auto end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, value, 16);
  if (digits.size() != 2 || stop != end || error != std::errc{}) return std::nullopt;
  return value;
}

/// Splits a line into words.
class Splitter {
 public:
  explicit Splitter(std::string_view line) : line_(line) {}

  std::vector<Word> words() {
    std::vector<Word> words;
    while (skipBlanks()) words.push_back(line_[at_] == '"' ? quoted() : plain());
    return words;
  }

 private:
  U32 column() const { return static_cast<U32>(at_) + 1; }
  bool skipBlanks() {
    while (at_ < line_.size() && isBlank(line_[at_])) ++at_;
    return at_ < line_.size() && line_[at_] != '!' && line_[at_] != '#';
  }
  Word plain() {
    Word word{"", column(), false};
    for (; at_ < line_.size() && !isBlank(line_[at_]); ++at_) {
      checkByte(line_[at_]);
      word.text += line_[at_];
    }
    return word;
  }
  Word quoted() {
    Word word{"", column(), true};
    for (++at_; at_ < line_.size() && line_[at_] != '"'; ++at_) {
      checkByte(line_[at_]);
      word.text += line_[at_] == '\\' ? escape() : line_[at_];
    }
    if (at_ == line_.size()) throw Fault{word.column, "expected a closing quote"};
    ++at_;
    if (at_ < line_.size() && !isBlank(line_[at_])) throw Fault{column(), "expected a blank after the quote"};
    return word;
  }
  char escape() {
    const U32 start = column();
    if (++at_ < line_.size() && (line_[at_] == '"' || line_[at_] == '\\')) return line_[at_];
    if (at_ < line_.size() && line_[at_] == 'x') {
      const auto value = hexByte(line_.substr(at_ + 1, 2));
      at_ += 2;
      if (value && *value != 0) return static_cast<char>(*value);
    }
    throw Fault{start, "expected \\\", \\\\ or \\xHH (not \\x00)"};
  }
  void checkByte(char c) const {
    const auto byte = static_cast<unsigned char>(c);
    if (byte < 0x20 || byte == 0x7F)
      throw Fault{column(), fmt::format("unexpected control byte \\x{:02X}", byte)};
  }

  std::string_view line_;
  std::size_t at_ = 0;
};

Lumo::Prefix parsePrefix(const Word& word) {
  Lumo::Prefix prefix;
  const Zan::Expect expected(Zan::ExceptionId::range);
  try {
    prefix = Lumo::Prefix(word.text);
  } catch (const Zan::Exception&) {
    const auto slash = word.text.find('/');
    const auto address = Lumo::IpAddr::parse(word.text.substr(0, slash));
    std::string hint;
    if (address && slash == std::string::npos) {
      hint = ": it has no /LENGTH";
    } else if (address) {
      U32 length = 0;
      const std::string digits = word.text.substr(slash + 1);
      const auto [stop, error] = std::from_chars(digits.data(), digits.data() + digits.size(), length);
      const bool number = error == std::errc{} && stop == digits.data() + digits.size() && length <= 32;
      hint = number ? fmt::format(": host bits are set, the network is {}",
                                  Lumo::Prefix(*address, length).stringValue())
                    : ": the length is not 0 to 32";
    }
    throw Fault{word.column,
                fmt::format("expected a prefix A.B.C.D/LENGTH, found \"{}\"{}", escaped(word.text), hint)};
  }
  if (Lumo::Prefix("224.0.0.0/4").contains(prefix.address()) && prefix.length() >= 4) {
    throw Fault{
        word.column,
        fmt::format("expected the prefix of sources, found the group range {}: a source is a unicast address",
                    prefix.stringValue())};
  }
  return prefix;
}

std::variant<Lumo::IpAddr, std::string> parseRpf(const Word& word) {
  constexpr std::size_t longestName = 15;  // IFNAMSIZ less the final zero
  if (!word.quoted) {
    if (const auto address = Lumo::IpAddr::parse(word.text)) return *address;
    if (word.text.find_first_not_of("0123456789./:") == std::string::npos ||
        word.text.find('/') != std::string::npos) {
      throw Fault{word.column, fmt::format("expected a next hop address or an interface, found \"{}\"",
                                           escaped(word.text))};
    }
  }
  if (word.text.empty() || word.text.size() > longestName || word.text.find('/') != std::string::npos) {
    throw Fault{word.column,
                fmt::format("expected an interface name of 1 to 15 bytes without a slash, found \"{}\"",
                            escaped(word.text))};
  }
  return word.text;
}

U8 parsePreference(const Word& word) {
  U32 value = 0;
  const char* end = word.text.data() + word.text.size();
  const auto [stop, error] = std::from_chars(word.text.data(), end, value);
  if (error != std::errc{} || stop != end || value < 1 || value > 255) {
    throw Fault{word.column,
                fmt::format("expected a preference from 1 to 255, found \"{}\"", escaped(word.text))};
  }
  return static_cast<U8>(value);
}

/// The parts of a line's words; nothing for a line without words.
std::optional<MrouteLine> parseLine(std::string_view text, U32 number) {
  const std::vector<Word> words = Splitter(text).words();
  if (words.empty()) return std::nullopt;
  const auto end = static_cast<U32>(text.size()) + 1;
  const auto expectWord = [&](std::size_t i, const char* what) -> const Word& {
    if (i >= words.size()) throw Fault{end, fmt::format("expected {}", what)};
    return words[i];
  };
  const auto expectKeyword = [&](std::size_t i, const char* keyword) {
    const Word& word = expectWord(i, keyword);
    if (word.text != keyword || word.quoted) {
      throw Fault{word.column, fmt::format("expected \"ip mroute\", found \"{}\"", escaped(word.text))};
    }
  };
  expectKeyword(0, "ip");
  expectKeyword(1, "mroute");
  MrouteLine line{parsePrefix(expectWord(2, "a prefix A.B.C.D/LENGTH")),
                  parseRpf(expectWord(3, "a next hop address or an interface")), 1, number};
  if (words.size() > 4) line.preference = parsePreference(words[4]);
  if (words.size() > 5) {
    throw Fault{words[5].column,
                fmt::format("expected the end of the line, found \"{}\"", escaped(words[5].text))};
  }
  return line;
}

}  // namespace

std::string MrouteLine::rpfText() const {
  if (const auto* address = std::get_if<Lumo::IpAddr>(&rpf)) return address->stringValue();
  return escaped(std::get<std::string>(rpf));
}

ParsedConfig parseConfig(std::string_view text) {
  ParsedConfig parsed;
  std::map<std::tuple<Lumo::Prefix, std::variant<Lumo::IpAddr, std::string>, U8>, U32> seen;
  for (U32 number = 1; !text.empty(); ++number) {
    std::string_view line = text.substr(0, text.find('\n'));
    text.remove_prefix(std::min(line.size() + 1, text.size()));
    if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
    try {
      const auto parsedLine = parseLine(line, number);
      if (!parsedLine) continue;
      const auto [first, isNew] =
          seen.try_emplace({parsedLine->prefix, parsedLine->rpf, parsedLine->preference}, number);
      if (!isNew) throw Fault{1, fmt::format("the same route stands in line {}", first->second)};
      parsed.lines.push_back(*parsedLine);
    } catch (const Fault& fault) {
      parsed.errors.push_back({number, fault.column, fault.text});
    }
  }
  return parsed;
}

std::vector<MrouteLine> readConfig(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  if (!in || !(text << in.rdbuf() || in.peek() == EOF)) throw Error(path + ": can't read it");
  ParsedConfig parsed = parseConfig(text.str());
  if (parsed.errors.empty()) return std::move(parsed.lines);
  std::string all;
  for (const ConfigError& e : parsed.errors) {
    all += fmt::format("{}{}:{}:{}: {}", all.empty() ? "" : "\n", path, e.line, e.column, e.text);
  }
  throw Error(all);
}

}  // namespace host
