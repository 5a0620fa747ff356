#pragma once

#include <memory>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "Clock.h"

/// The control protocol: Varlink (varlink.org), of which this layer knows everything but the methods.
namespace host::control {

/// Where a daemon serves unless it is told otherwise.
inline constexpr const char* defaultSocket = "/run/mrib/mribd.sock";

/// Who is at the other end of a connection.
struct Peer {
  U32 uid = 0;
  bool mayChange = false;  ///< root, or in the group that may
};

/// One message that answers a call.
struct Reply {
  std::string parameters = "{}";  ///< a JSON object
  std::string error{};            ///< the name of an error, such as "org.mrib.NotFound"; empty: none
  bool continues = false;         ///< more follow
};

/// A call with several replies. It is asked for the next one only when the client has room for it.
class Stream {
 public:
  virtual ~Stream() = default;
  /// The next reply, if there is one by now. After one that does not continue it is not asked again.
  virtual std::optional<Reply> next() = 0;
  /// When to ask again at the latest: 0 for at once, ~0 for when something else has happened.
  virtual Nanos due() const { return ~Nanos{0}; }
  /// Each reply takes so long that others have their turn before the next.
  virtual bool isSlow() const { return false; }
};

using Answer = std::variant<Reply, std::unique_ptr<Stream>>;

/// An interface that is served.
struct Interface {
  std::string name;
  std::string description;  ///< in Varlink's interface definition language
};

/// What the methods of the interfaces do.
class Handler {
 public:
  virtual ~Handler() = default;
  virtual const std::vector<Interface>& interfaces() const = 0;
  /// Calls a method by its full name. `more`: the client takes several replies. Throws nothing; a method that
  /// is not there is answered with nothing (std::nullopt).
  virtual std::optional<Answer> call(std::string_view method, const nlohmann::json& parameters, bool more,
                                     const Peer& peer) = 0;
};

}  // namespace host::control
