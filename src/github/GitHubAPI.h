#pragma once

// The client of GitHub's GraphQL endpoint: makes requests, classifies responses, asks who is signed
// in. Without state, safe on every thread; what takes a transport blocks.

#include <optional>
#include <stop_token>
#include <string>
#include <string_view>

#include <nlohmann/json_fwd.hpp>

#include "github/GitHubError.h"
#include "github/GitHubTransport.h"

namespace tessivane {

class GitHubAPI final {
 public:
  GitHubAPI() = delete;

  static constexpr const char* webHost = "github.com";
  static constexpr const char* webURL = "https://github.com/";
  static constexpr const char* graphQLURL = "https://api.github.com/graphql";
  static constexpr const char* userAgent = "Tessivane-macOS";

  /// `variables` is an object, or null for none.
  static HTTPRequest graphQLRequest(std::string_view token,
                                    std::string_view query,
                                    const nlohmann::json& variables);

  /// What the status tells: nothing for 200 to 299.
  static std::optional<GitHubError> classify(const HTTPResponse& response, Date now);

  /// How long the response asks to wait, never below zero: by Retry-After as a number, else by an
  /// exhausted rate limit's reset. The date form of Retry-After is not understood.
  static std::optional<Seconds> retryAfter(const HTTPResponse& response, Date now);

  /// The "data" object of the answer. A partial answer, data with errors, is told in the log.
  static GitHubResult<nlohmann::json> graphQL(std::string_view token,
                                              std::string_view query,
                                              const nlohmann::json& variables,
                                              GitHubTransport& transport,
                                              Date now,
                                              const std::stop_token& stop = {});

  /// The name of the account that the token belongs to, never empty.
  static GitHubResult<std::string> viewerLogin(std::string_view token,
                                               GitHubTransport& transport,
                                               Date now,
                                               const std::stop_token& stop = {});
};

}  // namespace tessivane
