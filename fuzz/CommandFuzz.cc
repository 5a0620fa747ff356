#include <algorithm>

#include "CommandLine.h"
#include "Error.h"
#include "Options.h"
#include "Safe.h"

// Reads the bytes as the words of a command line, with a NUL between them, of mrib or (the first byte says
// so) of mribd: they are refused in one line that is fit to print, ask for help, or make a request within the
// bounds that everybody relies on.

namespace {

using fuzz::must;
using Words = std::vector<std::string>;

bool isOneOf(const std::string& word, std::initializer_list<const char*> words) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

void judge(const host::Request& r) {
  const std::size_t count = r.arguments.size();
  const bool needsSome = isOneOf(r.command, {"rpf", "watch", "configure", "explain", "check-config"});
  const bool takesMany = isOneOf(r.command, {"rpf", "watch", "configure", "what-if"});
  must(count >= (needsSome ? 1 : 0) && (takesMany || count <= 1));
  must(r.interval >= 0 && r.interval <= 86400 && r.most <= 20000 && r.traceLevel >= -1 && r.traceLevel <= 9);
  must(isOneOf(r.type, {"", "connected", "static"}));
  must(isOneOf(r.format, {"", "tree", "dot", "svg", "mermaid", "json"}));
  must(r.tableName.empty() || r.vrf.empty());
  must(!r.once || r.socket.empty());
}

void judge(const host::Options& options) {
  must(isOneOf(options.exportFor, {"", "frr", "kernel"}) && (options.table.empty() || options.vrf.empty()));
  must(isOneOf(options.logLevel, {"error", "warning", "notice", "info", "debug"}));
}

template <class Asked, class Read>
void readBy(Read read, const Words& words) {
  Asked asked;
  try {
    const std::string help = read(words, asked);
    if (help.empty()) return judge(asked);
    must(fuzz::isSafe(help) && help.back() == '\n');
  } catch (const host::Error& e) {
    const std::string why = e.what();
    must(!why.empty() && fuzz::isSafe(why) && why.find('\n') == why.npos);
  }
}

void run(fuzz::Bytes bytes) {
  constexpr std::size_t mostWords = 64;
  if (bytes.empty()) return;
  Words words = fuzz::split(fuzz::textOf(bytes.subspan(1)), '\0');
  words.resize(std::min(words.size(), mostWords));
  if (bytes[0] % 4 == 3) return readBy<host::Options>(host::readOptions, words);
  readBy<host::Request>(host::readCommandLine, words);
}

const fuzz::Target target("command", run);

}  // namespace
