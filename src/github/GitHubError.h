#pragma once

// Why GitHub gave no answer. A plain value, safe on every thread.

#include <optional>
#include <string>
#include <variant>

#include "support/Date.h"

namespace tessivane {

struct GitHubError {
  enum class Kind { rateLimited, http, unauthorized, graphQL, network, malformed };

  Kind kind = Kind::network;
  /// Of `rateLimited`: how long GitHub asks to wait, when it says so.
  std::optional<Seconds> retryAfter = {};
  /// Of `http`: the status code.
  int status = 0;

  friend bool operator==(const GitHubError&, const GitHubError&) = default;
};

/// The word by which the log and the sign-in tell the error: "403" for `rateLimited`, the status
/// for `http`, "401" for `unauthorized`, "200 (graphql error)" for `graphQL`, else its own name.
std::string word(const GitHubError& error);

/// What was asked for, or why there is none.
template <typename Value>
using GitHubResult = std::variant<Value, GitHubError>;

}  // namespace tessivane
