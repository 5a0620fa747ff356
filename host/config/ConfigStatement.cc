#include "ConfigStatement.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>

#include "ConfigError.h"
#include "ConfigText.h"
#include "Groups.h"
#include "Lumo/Ip6Addr.h"

namespace host {

namespace {

constexpr Lumo::Prefix ipv4(U32 first, U32 length) {
  return {Lumo::IpAddr::fromHost(first << 24), length};
}

constexpr Lumo::Prefix loopback = ipv4(127, 8);
constexpr Lumo::Prefix thisNetwork = ipv4(0, 8);
constexpr Lumo::Prefix reserved = ipv4(240, 4);

bool isWithin(const Lumo::Prefix& inner, const Lumo::Prefix& outer) {
  return inner.length() >= outer.length() && outer.contains(inner.address());
}

/// Why nothing comes from these addresses, or null.
const char* faultOfSources(const Lumo::Prefix& prefix) {
  if (isWithin(prefix, groups)) return "these are group addresses, and a source has a unicast address";
  if (isWithin(prefix, loopback)) return "these are loopback addresses, which stay within a host";
  if (isWithin(prefix, thisNetwork)) return "these are no addresses of hosts";
  return nullptr;
}

/// Why this can be no neighbour's address, or null.
const char* faultOfNextHop(Lumo::IpAddr address) {
  if (address == Lumo::IpAddr::fromHost(~U32{0})) return "it is the broadcast address";
  if (groups.contains(address)) return "it is a group address";
  if (reserved.contains(address)) return "240.0.0.0/4 is reserved";
  if (loopback.contains(address)) return "it is a loopback address";
  if (thisNetwork.contains(address)) return "it is not the address of a host";
  return nullptr;
}

[[noreturn]] void refuse(const Word& word, std::string_view expected, std::string_view why = "") {
  throw Fault{word.column, fmt::format("expected {}, found {}{}{}", expected, quoted(word.text),
                                       why.empty() ? "" : ": ", why)};
}

/// An address, prefix or zoned address of the other family.
void checkFamily(const Word& word) {
  if (word.quoted || word.text.find(':') == word.text.npos) return;
  if (Lumo::Ip6Addr::parse(word.text.substr(0, word.text.find_first_of("/%")))) {
    throw Fault{word.column, fmt::format("IPv6 is not supported yet: {}", quoted(word.text))};
  }
}

template <class Number>
bool readNumber(std::string_view digits, Number& value) {
  const char* end = digits.data() + digits.size();
  const auto [stop, error] = std::from_chars(digits.data(), end, value);
  return error == std::errc{} && stop == end;
}

/// What is wrong with a text that is no prefix, if anything about it is right.
std::string hintFor(std::string_view text) {
  const auto slash = text.find('/');
  const auto address = Lumo::IpAddr::parse(text.substr(0, slash));
  if (!address) return "";
  if (slash == text.npos) return "it has no /LENGTH";
  const std::string_view digits = text.substr(slash + 1);
  U32 length = 0;
  if (!readNumber(digits, length) || length > Lumo::Prefix::maxLength) return "the length is not 0 to 32";
  if (digits.size() > 1 && digits[0] == '0') return "the length has a leading zero";
  return "host bits are set, the network is " + Lumo::Prefix(*address, length).stringValue();
}

Lumo::Prefix prefixOf(const Word& word) {
  const auto prefix = Lumo::Prefix::parse(word.text);
  if (!prefix) {
    checkFamily(word);
    refuse(word, "a prefix A.B.C.D/LENGTH", hintFor(word.text));
  }
  if (const char* fault = faultOfSources(*prefix)) refuse(word, "the prefix of sources", fault);
  return *prefix;
}

std::variant<Lumo::IpAddr, std::string> rpfOf(const Word& word) {
  constexpr std::size_t longestName = 15;  // IFNAMSIZ less the final zero
  const bool hasSlash = word.text.find('/') != word.text.npos;
  if (!word.quoted) {
    if (const auto address = Lumo::IpAddr::parse(word.text)) {
      if (const char* fault = faultOfNextHop(*address)) refuse(word, "the address of a neighbour", fault);
      return *address;
    }
    checkFamily(word);
    if (hasSlash || word.text.find_first_not_of("0123456789.:") == word.text.npos) {
      refuse(word, "a next hop address or an interface");
    }
  }
  if (word.text.empty() || word.text.size() > longestName || hasSlash) {
    refuse(word, "an interface name of 1 to 15 bytes without a slash");
  }
  return std::string(word.text);
}

Lumo::IpAddr neighborOf(const Word& word) {
  const auto rpf = rpfOf(word);
  const auto* address = std::get_if<Lumo::IpAddr>(&rpf);
  if (!address) refuse(word, "the address of a neighbour");
  return *address;
}

U32 tableOf(const Word& word) {
  U32 value = 0;
  if (!readNumber(word.text, value)) refuse(word, "the number of a table");
  return value;
}

U8 preferenceOf(const Word& word) {
  U32 value = 0;
  if (!readNumber(word.text, value) || value < 1 || value > 255) refuse(word, "a preference from 1 to 255");
  return static_cast<U8>(value);
}

bool is(const Word& word, std::string_view keyword) {
  return word.text == keyword && !word.quoted;
}

ExportFor exportForOf(const Word& word) {
  const auto user = host::exportForOf(word.text);
  if (!user || word.quoted) refuse(word, exportForNames);
  return *user;
}

class Parser {
 public:
  Parser(std::string_view line, Grammar grammar) : words_(line), grammar_(grammar) {}

  Statement statement() {
    const auto first = words_.next();
    if (first) {
      read(*first);
      if (const auto more = words_.next()) refuse(*more, "the end of the line");
    }
    return std::move(statement_);
  }

 private:
  void read(Word word) {
    const bool isFile = grammar_ == Grammar::file;
    if (isFile && is(word, "include")) return readInclude();
    statement_.no = !isFile && is(word, "no");
    if (statement_.no) word = expectWord("\"ip\"");
    if (is(word, "ipv6")) throw Fault{word.column, "IPv6 is not supported yet"};
    if (!is(word, "ip"))
      refuse(word, statement_.no ? "\"ip\"" : isFile ? "\"ip\" or \"include\"" : "\"ip\" or \"no\"");
    readIp();
  }
  void readIp() {
    constexpr std::string_view keywords = "\"mroute\" or \"multicast\"";
    const Word word = expectWord(keywords);
    if (is(word, "mroute")) return readMroute();
    if (!is(word, "multicast")) refuse(word, keywords);
    readMulticast();
  }
  void readMulticast() {
    constexpr std::string_view keywords = "\"rpf-lookup-mode\" or \"export-table\"";
    const Word word = expectWord(keywords);
    if (is(word, "export-table")) return readExportTable();
    if (!is(word, "rpf-lookup-mode")) refuse(word, keywords);
    readLookupMode();
  }
  void readInclude() {
    constexpr std::string_view what = "a file or a folder";
    const Word word = expectWord(what);
    if (word.text.empty()) refuse(word, what);
    statement_.kind = Statement::Kind::include;
    statement_.path = word.text;
    statement_.column = word.column;
  }
  void readMroute() {
    statement_.kind = Statement::Kind::mroute;
    statement_.mroute.prefix = prefixOf(expectWord("a prefix A.B.C.D/LENGTH"));
    statement_.mroute.rpf = rpfOf(expectWord("a next hop address or an interface"));
    auto preference = words_.next();
    if (preference && is(*preference, "neighbor")) {
      readNeighbor(*preference);
      preference = words_.next();
    }
    statement_.hasPreference = preference.has_value();
    statement_.mroute.preference = preference ? preferenceOf(*preference) : U8{1};
  }
  void readNeighbor(const Word& keyword) {
    if (!std::holds_alternative<std::string>(statement_.mroute.rpf)) {
      throw Fault{keyword.column, "a neighbor is named for an interface only: a next hop is one"};
    }
    statement_.mroute.neighbor = neighborOf(expectWord("the address of a neighbour"));
  }
  void readExportTable() {
    statement_.kind = Statement::Kind::exportTable;
    if (statement_.no) return;
    statement_.exportTable.table = tableOf(expectWord("the number of a table"));
    const auto more = words_.next();
    if (more && !is(*more, "for")) refuse(*more, "\"for\" or the end of the line");
    if (more) statement_.exportTable.user = exportForOf(expectWord(exportForNames));
    const std::string fault = faultOf(statement_.exportTable);
    if (!fault.empty()) throw Fault{1, fault};
  }
  void readLookupMode() {
    statement_.kind = Statement::Kind::lookupMode;
    if (statement_.no) return;
    const Word name = expectWord(lookupModeNames);
    const auto mode = lookupModeOf(name.text);
    if (!mode || name.quoted) refuse(name, lookupModeNames);
    statement_.lookupMode = *mode;
  }
  Word expectWord(std::string_view what) {
    const auto word = words_.next();
    if (!word) throw Fault{words_.endColumn(), fmt::format("expected {}", what)};
    return *word;
  }

  ConfigWords words_;
  Grammar grammar_;
  Statement statement_;
};

}  // namespace

Statement parseStatement(std::string_view line, Grammar grammar) {
  return Parser(line, grammar).statement();
}

}  // namespace host
