#pragma once

// What every request to GitHub goes through. Called on a worker queue, where it blocks; an
// implementation may be called from several threads at once.

#include <optional>
#include <stop_token>

#include "platform/HTTP.h"

namespace tessivane {

class GitHubTransport {
 public:
  GitHubTransport() = default;
  GitHubTransport(const GitHubTransport&) = delete;
  GitHubTransport& operator=(const GitHubTransport&) = delete;
  virtual ~GitHubTransport() = default;

  /// Sends the request and waits for the whole response, whatever its status. Nothing when there
  /// is none: no connection, no trust in the server, too slow, too long, or `stop` was requested,
  /// which ends the wait at once.
  virtual std::optional<HTTPResponse> send(const HTTPRequest& request,
                                           const std::stop_token& stop) = 0;
};

}  // namespace tessivane
