#pragma once

#include <chrono>
#include <nlohmann/json.hpp>

#include "Error.h"
#include "Queue.h"

namespace host::control {

/// Nobody answers at a socket: there is no daemon, or none for this user.
class NotAnswering : public Error {
 public:
  using Error::Error;
};

/// The daemon answered with an error of its interface.
class RemoteError : public Error {
 public:
  RemoteError(std::string name, nlohmann::ordered_json parameters);
  /// Such as "org.varlink.service.InvalidParameter".
  const std::string& name() const { return name_; }
  const nlohmann::ordered_json& parameters() const { return parameters_; }

 private:
  std::string name_;
  nlohmann::ordered_json parameters_;
};

/// A connection to a daemon. It blocks; one thread uses it at a time. After an Error that is no RemoteError
/// it is of no more use.
class Client {
 public:
  using Time = std::chrono::milliseconds;
  static constexpr Time forever{0};

  /// Throws NotAnswering with the reason. `patience`: how long the daemon may say nothing, here and in
  /// `call`.
  explicit Client(const std::string& path, Time patience = std::chrono::seconds(10));
  ~Client();
  Client(const Client&) = delete;
  Client& operator=(const Client&) = delete;

  /// Calls a method that answers once. Returns the parameters of the reply; throws RemoteError or Error.
  nlohmann::ordered_json call(std::string_view method,
                              const nlohmann::ordered_json& parameters = nlohmann::ordered_json::object());

  /// Sends a call, and does not wait; `next` has the replies, in the order of the calls.
  void send(std::string_view method,
            const nlohmann::ordered_json& parameters = nlohmann::ordered_json::object(), bool more = false);
  struct Message {
    nlohmann::ordered_json parameters;
    bool continues = false;  ///< more replies to the same call follow
  };
  /// The next reply. Throws RemoteError or Error, also when it does not come in time.
  Message next(Time patience = forever);

  /// To wait for along with others. Readable does not mean that a whole reply is there, and one may be there
  /// already: `hasReply`.
  int fd() const { return fd_; }
  bool hasReply() const { return input_.bytes().find('\0', taken_) != std::string_view::npos; }

 private:
  std::string_view message(Time patience);
  void receive(Time patience);

  std::string path_;
  Time patience_;
  int fd_ = -1;
  Queue input_;
  std::size_t taken_ = 0;  // bytes of it that `next` has returned
};

}  // namespace host::control
