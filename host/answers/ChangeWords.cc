#include "ChangeWords.h"

#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <map>

#include "ConfigError.h"
#include "ConfigWords.h"
#include "Names.h"

namespace host {

using kernel::IpGenAddr;
using kernel::RouteRequest;
using Lumo::IpAddr;
using Lumo::Prefix;

namespace {

constexpr std::string_view someChange = "\"link\", \"address\", \"route\", \"ip\" or \"no\"";

/// The words of a change, one at a time.
class Reader {
 public:
  explicit Reader(std::string_view text) : words_(text) { step(); }

  bool atEnd() const { return !word_; }
  const std::string& word() const { return *word_; }
  bool is(std::string_view text) const { return word_ && *word_ == text; }
  bool take(std::string_view text) {
    if (!is(text)) return false;
    step();
    return true;
  }
  std::string next(std::string_view expected) {
    if (!word_) refuse(expected);
    std::string text = *word_;
    step();
    return text;
  }
  /// The value of the next word; `parse` gives nothing for one that has none.
  template <class Parse>
  auto value(Parse parse, std::string_view expected) {
    if (!word_) refuse(expected);
    const auto value = parse(*word_);
    if (!value) refuse(expected);
    step();
    return *value;
  }
  [[noreturn]] void refuse(std::string_view expected) const {
    throw Error(fmt::format("expected {}, found {}", expected, word_ ? quoted(*word_) : "its end"));
  }

 private:
  void step() {
    try {
      const auto word = words_.next();
      word_.reset();
      if (word) word_ = std::string(word->text);
    } catch (const Fault& fault) {
      throw Error(fmt::format("column {}: {}", fault.column, fault.text));
    }
  }

  ConfigWords words_;
  std::optional<std::string> word_;
};

std::optional<U32> number(std::string_view text) {
  U32 value = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (error != std::errc() || end != text.data() + text.size()) return std::nullopt;
  return value;
}

std::optional<U32> weightOf(std::string_view text) {
  constexpr U32 heaviest = 256;
  const auto value = number(text);
  return value && *value >= 1 && *value <= heaviest ? value : std::nullopt;
}

std::optional<IpGenAddr> gatewayOf(std::string_view text) {
  if (const auto v4 = IpAddr::parse(text)) return IpGenAddr(*v4);
  if (const auto v6 = Lumo::Ip6Addr::parse(text)) return IpGenAddr(*v6);
  return std::nullopt;
}

/// As `ip` reads them: an address is a host.
std::optional<Prefix> prefixOf(std::string_view text) {
  if (text == "default") return Prefix();
  if (const auto host = IpAddr::parse(text)) return Prefix(*host, Prefix::maxLength);
  return Prefix::parse(text);
}

// ---- Links and addresses ----

LinkWords linkOf(Reader& reader) {
  LinkWords words{reader.next("the name of a link")};
  if (!reader.is("up") && !reader.is("down")) reader.refuse("up or down");
  words.up = reader.next("") == "up";
  return words;
}

std::optional<AddressWords> addressOf(std::string_view text) {
  const auto slash = text.find('/');
  AddressWords words;
  const auto local = IpAddr::parse(text.substr(0, slash));
  if (!local || *local == IpAddr()) return std::nullopt;
  words.local = *local;
  if (slash == text.npos) return words;
  const auto length = number(text.substr(slash + 1));
  if (!length || *length > Prefix::maxLength) return std::nullopt;
  words.length = static_cast<U8>(*length);
  return words;
}

AddressWords addressOf(Reader& reader) {
  const std::string link = reader.next("the name of a link");
  if (!reader.is("add") && !reader.is("del")) reader.refuse("add or del");
  const bool add = reader.next("") == "add";
  AddressWords words = reader.value([](const std::string& text) { return addressOf(text); },
                                    "an IPv4 address such as 10.0.0.1/24");
  words.link = link;
  words.add = add;
  if (add && !words.length) words.length = U8{Prefix::maxLength};
  return words;
}

// ---- Routes ----

RouteRequest::Verb verbOf(Reader& reader) {
  static const std::map<std::string_view, RouteRequest::Verb> verbs{
      {"add", RouteRequest::Verb::add},         {"append", RouteRequest::Verb::append},
      {"prepend", RouteRequest::Verb::prepend}, {"replace", RouteRequest::Verb::replace},
      {"change", RouteRequest::Verb::change},   {"del", RouteRequest::Verb::del},
      {"delete", RouteRequest::Verb::del}};
  return reader.value(
      [](std::string_view word) -> std::optional<RouteRequest::Verb> {
        const auto at = verbs.find(word);
        return at == verbs.end() ? std::nullopt : std::optional(at->second);
      },
      "add, append, prepend, replace, change or del");
}

/// A word of a leg, if it is one.
bool takeLegWord(Reader& reader, RouteRequest::Leg& leg) {
  if (reader.take("via")) {
    if (!reader.take("inet")) reader.take("inet6");
    leg.gateway = reader.value([](const std::string& text) { return gatewayOf(text); }, "an address");
  } else if (reader.take("dev")) {
    leg.link = reader.next("the name of a link");
  } else if (reader.take("onlink")) {
    leg.onlink = true;
  } else if (reader.take("weight")) {
    reader.value(weightOf, "a weight from 1 to 256");
  } else {
    return false;
  }
  return true;
}

void takeOption(Reader& reader, RouteRequest& request) {
  const auto takeAny = [&](std::string_view a, std::string_view b) {
    return reader.take(a) || reader.take(b);
  };
  if (takeAny("metric", "priority")) {
    request.metric = reader.value(number, "a number");
  } else if (takeAny("proto", "protocol")) {
    request.protocol = reader.value(kernel::protocolNumber, "a protocol");
  } else if (reader.take("scope")) {
    request.scope = reader.value(kernel::scopeNumber, "a scope");
  } else if (takeAny("tos", "dsfield")) {
    request.tos = reader.value(kernel::tosNumber, "a TOS");
  } else if (reader.take("table")) {
    request.table = reader.value(kernel::tableNumber, "a table");
  } else if (reader.take("nhid")) {
    request.nextHop = reader.value(number, "a number");
  } else if (reader.take("src")) {
    request.source =
        IpGenAddr(reader.value([](const std::string& t) { return IpAddr::parse(t); }, "an address"));
  } else {
    reader.refuse("via, dev, onlink, metric, proto, scope, src, tos, table, nhid or nexthop");
  }
}

RouteRequest routeOf(Reader& reader) {
  RouteRequest request;
  request.verb = verbOf(reader);
  static const std::vector<std::string> types{"unicast",   "local",       "broadcast", "anycast", "multicast",
                                              "blackhole", "unreachable", "prohibit",  "throw"};
  if (!reader.atEnd() && std::find(types.begin(), types.end(), reader.word()) != types.end()) {
    request.type = reader.value(kernel::routeTypeNumber, "a type of route");
  }
  reader.take("to");
  request.prefix = reader.value([](const std::string& text) { return prefixOf(text); },
                                "an IPv4 prefix without host bits");
  RouteRequest::Leg only;
  bool hasOnly = false;
  while (!reader.atEnd()) {
    if (reader.take("nexthop")) {
      request.isMultipath = true;
      request.legs.emplace_back();
      while (!reader.atEnd() && takeLegWord(reader, request.legs.back())) {
      }
    } else if (takeLegWord(reader, only)) {
      hasOnly = true;
    } else {
      takeOption(reader, request);
    }
  }
  if (hasOnly && request.isMultipath) throw Error("it has next hops of its own beside \"nexthop\"");
  if (hasOnly) request.legs.push_back(only);
  return request;
}

}  // namespace

ImaginedChange parseChange(const std::string& text) {
  Reader reader(text);
  if (reader.is("ip") || reader.is("no")) return ConfigurationWords{text};
  ImaginedChange change;
  if (reader.take("link")) {
    change = linkOf(reader);
  } else if (reader.take("address")) {
    change = addressOf(reader);
  } else if (reader.take("route")) {
    change = routeOf(reader);
  } else {
    reader.refuse(someChange);
  }
  if (!reader.atEnd()) reader.refuse("nothing more");
  return change;
}

}  // namespace host
