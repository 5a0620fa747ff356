#pragma once

#include <functional>
#include <memory>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>

#include "Configurator.h"

namespace host {

using Json = nlohmann::ordered_json;

/// Who answers the command's questions: a daemon, or this process from what it has read itself. Both speak in
/// the methods and documents of org.mrib. All throw control::RemoteError for its errors, and Error.
class Backend {
 public:
  virtual ~Backend() = default;
  /// For people: who answers.
  virtual std::string name() const = 0;
  virtual Json call(const std::string& method, const Json& parameters) = 0;
  /// Hands in each reply; for those that never end, until `each` says false.
  virtual void stream(const std::string& method, const Json& parameters,
                      const std::function<bool(const Json&)>& each) = 0;
  /// The same for one that is printed and does not end, until nobody reads standard output any more: after
  /// `| head` this process would stay until the next change, and with it a client of the daemon's few.
  void follow(const std::string& method, const Json& parameters,
              const std::function<bool(const Json&)>& each) {
    isFollowing_ = true;
    stream(method, parameters, each);
  }

 protected:
  bool isFollowing_ = false;
};

/// Where a process reads on its own.
struct OnceOptions {
  std::string from;                              ///< a folder; empty: the kernel
  std::string config;                            ///< a file; empty: none
  std::optional<Configuration> configuration{};  ///< in place of a file
  bool sample = false;
  U32 table = 254;
};

/// This process, with what it has read itself.
class OwnReading : public Backend {
 public:
  virtual const Router& router() const = 0;
  virtual Configurator& configurator() = 0;
};

/// Reads everything now. `prepare` is called before the engine starts.
std::unique_ptr<OwnReading> readOnce(const OnceOptions& options, const std::function<void()>& prepare);

/// The daemon at a socket. Throws control::NotAnswering.
std::unique_ptr<Backend> daemonAt(const std::string& socket);

}  // namespace host
