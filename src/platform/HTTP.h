#pragma once

// One HTTP exchange as values. Safe on every thread.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/Date.h"

namespace tessivane {

struct HTTPHeader {
  std::string name = {};
  std::string value = {};

  friend bool operator==(const HTTPHeader&, const HTTPHeader&) = default;
};

struct HTTPRequest {
  std::string method = "GET";
  std::string url = {};
  std::vector<HTTPHeader> headers = {};
  std::optional<std::string> body = {};
  /// The longest that the exchange may take from its beginning to the last byte.
  Seconds timeout{60};
};

struct HTTPResponse {
  int status = 0;
  std::vector<HTTPHeader> headers = {};
  std::string body = {};

  /// The value of the last header of that name, told apart without regard to case.
  std::optional<std::string> header(std::string_view name) const;
};

/// Overwrites the headers' values and the body before their memory is given back: what is secret in
/// a request stands there.
void wipe(HTTPRequest& request);

}  // namespace tessivane
