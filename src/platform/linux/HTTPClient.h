#pragma once

// Sends HTTP requests over the network, through libcurl, and blocks until the response is there.
// Without state: safe on every thread, any number of requests at once, each over a connection of
// its own. No cookies, no cache, no redirects; a server of "https" must be trusted by the system,
// or by the authorities in the file that SSL_CERT_FILE names. Proxies too are taken from the
// environment ("https_proxy" and the like). Tells nobody what it sends: nothing is logged, and a
// failure has no text.

#include <chrono>
#include <cstddef>
#include <optional>
#include <stop_token>

#include "platform/HTTP.h"

namespace tessivane {

class HTTPClient final {
 public:
  HTTPClient() = delete;

  /// How long a server may stay silent, the time to connect to it included.
  static constexpr std::chrono::seconds maxSilence{30};
  /// How long an exchange may take, whatever its request allows.
  static constexpr std::chrono::seconds maxDuration{60};
  /// In bytes.
  static constexpr std::size_t maxBody = 32 << 20;
  static constexpr std::size_t maxHeaders = 256 << 10;

  /// The whole response, whatever its status. Nothing when there is none: no "http" or "https" URL,
  /// a header with a line break or NUL, no connection, no trust in the server, too slow, too long,
  /// cut off, or `stop` was requested, which ends the wait at once.
  static std::optional<HTTPResponse> send(const HTTPRequest& request, const std::stop_token& stop);
};

}  // namespace tessivane
