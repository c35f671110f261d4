#pragma once

// An HTTP server on 127.0.0.1 whose handler says how each request is answered, faults included. A
// connection takes one request and has a thread of its own, on which the handler is called: it may
// block, and must be safe on several threads. The operations are safe on every thread.
//
// When the value goes, all connections are cut and every handler is waited for, so what one of them
// waits for must have happened by then.

#include <chrono>
#include <cstddef>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "helpers/TLSServer.h"
#include "platform/HTTP.h"
#include "support/Mutex.h"

namespace tessivane {

class LoopbackServer final {
 public:
  enum class Kind {
    http,
    https,  ///< with a certificate that nobody but itself has signed
    closed  ///< a port that refuses every connection for as long as the value lives
  };

  /// Content-Length and Connection are added to the headers.
  struct Answer {
    int status = 200;
    /// Nothing is sent, and the connection stays open until the client ends it.
    bool silent = false;
    std::vector<HTTPHeader> headers = {};
    std::string body = {};
    /// Sent in place of the above, head and all.
    std::optional<std::string> raw = {};
    /// The connection is cut after that many bytes, those of the head included.
    std::optional<std::size_t> cutAfter = {};
    /// The body, or `raw`, comes byte by byte with that long between them.
    std::optional<std::chrono::milliseconds> drip = {};
  };
  /// The request's `url` is the path with its query.
  using Handler = std::function<Answer(const HTTPRequest& request)>;

  /// Listens on a free port. Throws when there is none. Without a handler, all is answered by 200.
  explicit LoopbackServer(Handler handler = {},
                          Kind kind = Kind::http,
                          const TLSValidity& validity = {});
  LoopbackServer(const LoopbackServer&) = delete;
  LoopbackServer& operator=(const LoopbackServer&) = delete;
  ~LoopbackServer();

  /// Such as "http://127.0.0.1:40123".
  const std::string& origin() const { return origin_; }
  std::string url(std::string_view path = "/") const { return origin_ + std::string(path); }

  /// Of `https`.
  const std::string& certificate() const { return tls_->certificate(); }

  /// What has come in so far, in the order in which it was complete.
  std::vector<HTTPRequest> requests() const;
  /// How many connections were made so far, whatever came over them.
  std::size_t connections() const;

 private:
  class Connection;

  void listen(Kind kind);
  void acceptAll();
  void serve(Connection& connection);

  const Handler handler_;
  std::string origin_;
  std::unique_ptr<TLSServer> tls_;
  int listener_ = -1;
  std::thread acceptor_;
  mutable Mutex mutex_;
  std::vector<std::unique_ptr<Connection>> connections_ GUARDED_BY(mutex_);
  std::vector<HTTPRequest> requests_ GUARDED_BY(mutex_);
};

}  // namespace tessivane
