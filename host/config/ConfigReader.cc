#include "ConfigReader.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "ConfigStatement.h"
#include "Escape.h"
#include "MrouteIndex.h"
#include "TextFile.h"

namespace host {

namespace fs = std::filesystem;

namespace {

/// Thrown when there are so many errors that the rest is not worth reading.
struct TooMany {};

/// Takes the first line, without its end, off a text.
std::string_view takeLine(std::string_view& text) {
  std::string_view line = text.substr(0, text.find('\n'));
  text.remove_prefix(std::min(line.size() + 1, text.size()));
  if (!line.empty() && line.back() == '\r') line.remove_suffix(1);
  return line;
}

class Reader {
 public:
  void readFile(const std::string& path) {
    TextFile file(path);
    checkNew(file);
    if (config_.files.size() == mostConfigFiles)
      throw Error("too many: a configuration has at most 1000 files");
    const std::string text = file.read(mostConfigBytes - bytes_);
    bytes_ += text.size();
    readText(text, path, file.status());
  }
  void readText(std::string_view text, const std::string& path, const struct stat& status) {
    config_.files.push_back(path);
    known_.push_back({status, open_.empty() ? 0 : origin()});
    open_.push_back({static_cast<U32>(config_.files.size()), 0});
    if (text.substr(0, 3) == "\xEF\xBB\xBF") text.remove_prefix(3);
    if (const auto zero = text.find('\0'); zero != text.npos) {
      refuseZero(text.substr(0, zero));
    } else {
      reserveFor(text);
      while (!text.empty()) readLine(takeLine(text));
    }
    open_.pop_back();
  }
  void addError(ConfigError error) {
    errors_.push_back(std::move(error));
    if (errors_.size() == mostConfigErrors) throw TooMany();
  }
  Configuration take() {
    if (!errors_.empty()) throw ConfigurationError(std::move(errors_));
    return std::move(config_);
  }

 private:
  /// A file in the midst of which the reading is.
  struct Open {
    U32 number;  // from 1
    U32 line;
  };
  struct Known {
    struct stat status;
    U64 includedAt;
  };

  U64 origin() const { return U64{open_.back().number} << 32 | open_.back().line; }
  const std::string& path() const { return config_.files[open_.back().number - 1]; }

  void refuseZero(std::string_view before) {
    const auto lines = static_cast<U32>(std::count(before.begin(), before.end(), '\n'));
    const auto column = static_cast<U32>(before.size() - (before.rfind('\n') + 1));
    addError({escaped(path()), lines + 1, column + 1, "a NUL byte: this is no text, and none of it is read"});
  }

  /// Makes room for the lines of a text, if it may have more than there are.
  void reserveFor(std::string_view text) {
    constexpr std::size_t shortestLine = sizeof "ip mroute 0.0.0.0/0 e";
    const auto ends = static_cast<std::size_t>(std::count(text.begin(), text.end(), '\n'));
    const std::size_t lines = std::min(ends, text.size() / shortestLine);
    if (lines <= config_.mroutes.size()) return;
    config_.mroutes.reserve(config_.mroutes.size() + lines);
    index_.reserve(config_.mroutes.size() + lines);
  }

  void readLine(std::string_view text) {
    ++open_.back().line;
    try {
      apply(parseStatement(text, Grammar::file));
    } catch (const Fault& fault) {
      addError({escaped(path()), open_.back().line, fault.column, fault.text});
    }
  }

  void apply(Statement&& statement) {
    if (statement.kind == Statement::Kind::mroute) addMroute(std::move(statement.mroute));
    if (statement.kind == Statement::Kind::lookupMode) setLookupMode(statement.lookupMode);
    if (statement.kind == Statement::Kind::exportTable) setExportTable(statement.exportTable);
    if (statement.kind == Statement::Kind::include) include(statement);
  }
  void addMroute(MrouteLine&& line) {
    line.origin = origin();
    const auto place = static_cast<U32>(config_.mroutes.size());
    config_.mroutes.push_back(std::move(line));
    const U32 same = index_.enter(place);
    if (same == place) return;
    config_.mroutes.pop_back();
    throw Fault{1, "the same route stands in " + config_.placeOf(config_.mroutes[same].origin)};
  }
  void setLookupMode(LookupMode mode) {
    if (modeOrigin_ != 0) throw Fault{1, "the mode stands in " + config_.placeOf(modeOrigin_) + " already"};
    modeOrigin_ = origin();
    config_.lookupMode = mode;
  }

  void setExportTable(const ExportTable& table) {
    if (exportOrigin_ != 0)
      throw Fault{1, "the exported table stands in " + config_.placeOf(exportOrigin_) + " already"};
    exportOrigin_ = origin();
    config_.exportTable = table;
  }

  // ---- Includes ----

  void include(const Statement& statement) {
    const U32 column = statement.column;
    config_.includes = true;
    if (++includes_ > mostConfigFiles)
      throw Fault{column, "too many: a configuration includes at most 1000 times"};
    if (open_.size() == deepestInclude) throw Fault{column, "includes are nested more than 16 deep"};
    const fs::path target = fs::path(path()).parent_path() / statement.path;
    std::error_code none;
    if (!fs::is_directory(target, none)) return includeFile(target, column);
    for (const fs::path& file : filesIn(target, column)) includeFile(file, column);
  }
  /// What is wrong with the file itself is an error of the line that includes it.
  void includeFile(const fs::path& file, U32 column) {
    try {
      readFile(file.string());
    } catch (const Error& e) {
      addError({escaped(path()), open_.back().line, column, escaped(file.string()) + ": " + e.what()});
    }
  }
  /// The configurations in a folder, by name; none that is hidden, since editors leave such files.
  static std::vector<fs::path> filesIn(const fs::path& folder, U32 column) {
    std::vector<fs::path> files;
    std::error_code error;
    for (fs::directory_iterator at(folder, error), end; !error && at != end; at.increment(error)) {
      const fs::path& file = at->path();
      if (file.extension() == ".conf" && file.filename().string()[0] != '.') files.push_back(file);
      if (files.size() > mostConfigFiles) break;
    }
    if (error)
      throw Fault{column, fmt::format("{}: can't read it: {}", escaped(folder.string()), error.message())};
    std::sort(files.begin(), files.end());
    return files;
  }
  /// A file that is read already is not read again, least of all one that includes itself.
  void checkNew(const TextFile& file) const {
    const auto known =
        std::find_if(known_.begin(), known_.end(), [&](const Known& k) { return file.isSameAs(k.status); });
    if (known == known_.end()) return;
    const auto number = static_cast<U32>(known - known_.begin()) + 1;
    const auto at =
        std::find_if(open_.begin(), open_.end(), [&](const Open& o) { return o.number == number; });
    if (at == open_.end())
      throw Error("it is included in " + config_.placeOf(known->includedAt) + " already");
    std::string chain = "it includes itself in a circle: ";
    for (auto o = at; o != open_.end(); ++o)
      chain += config_.placeOf(U64{o->number} << 32 | o->line) + " -> ";
    throw Error(chain + escaped(config_.files[number - 1]));
  }

  Configuration config_;
  MrouteIndex index_{config_.mroutes};
  U64 modeOrigin_ = 0;
  U64 exportOrigin_ = 0;
  std::size_t bytes_ = 0;
  std::size_t includes_ = 0;
  std::vector<Open> open_;    // each includes the next
  std::vector<Known> known_;  // all that were read, by number
  std::vector<ConfigError> errors_;
};

/// Reads with `read(reader)`.
template <class Read>
Configuration readWith(Read read) {
  Reader reader;
  try {
    read(reader);
  } catch (const TooMany&) {
  }
  return reader.take();
}

}  // namespace

Configuration readConfiguration(const std::string& path) {
  return readWith([&](Reader& reader) {
    try {
      reader.readFile(path);
    } catch (const Error& e) {
      reader.addError({escaped(path), 0, 0, e.what()});
    }
  });
}

Configuration parseConfiguration(std::string_view text, const std::string& path) {
  return readWith([&](Reader& reader) { reader.readText(text, path, {}); });
}

}  // namespace host
