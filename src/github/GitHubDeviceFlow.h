#pragma once

// GitHub's OAuth device flow: GitHub gives a short code, the person enters it on a page of
// GitHub's, and the token is asked for until that has happened. Without state, safe on every
// thread; what takes a transport blocks.

#include <functional>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <variant>
#include <vector>

#include "github/GitHubError.h"
#include "github/GitHubTransport.h"
#include "support/Date.h"

namespace tessivane {

struct GitHubDeviceCode {
  std::string deviceCode = {};       ///< by which the token is asked for; never shown
  std::string userCode = {};         ///< what the person enters
  std::string verificationURI = {};  ///< where; with scheme and host, http or https
  Seconds expiresIn{900};
  Seconds interval{5};  ///< between two requests for the token, at least 1

  friend bool operator==(const GitHubDeviceCode&, const GitHubDeviceCode&) = default;
};

struct GitHubDeviceFlowResult {
  enum class Kind { token, denied, expired, cancelled, failed };

  Kind kind = Kind::failed;
  /// Of `token`.
  std::string token = {};
  /// Of `failed`: GitHub's word for it, the status, or "malformed".
  std::string reason = {};

  friend bool operator==(const GitHubDeviceFlowResult&, const GitHubDeviceFlowResult&) = default;
};

class GitHubDeviceFlow final {
 public:
  GitHubDeviceFlow() = delete;

  static constexpr const char* codeURL = "https://github.com/login/device/code";
  static constexpr const char* tokenURL = "https://github.com/login/oauth/access_token";

  using Fields = std::vector<std::pair<std::string, std::string>>;
  /// Blocks for that long, or until the stop is requested.
  using Sleep = std::function<void(Seconds, const std::stop_token&)>;
  /// Either go on after that interval, or the end.
  using Step = std::variant<Seconds, GitHubDeviceFlowResult>;

  /// A POST of a form. Names are sent as they are.
  static HTTPRequest formRequest(const std::string& url, const Fields& fields);

  static HTTPRequest codeRequest(const std::string& clientID);

  /// Nothing when one of the texts is missing, empty, or the page has no web address.
  static std::optional<GitHubDeviceCode> parseCode(std::string_view data);

  static GitHubResult<GitHubDeviceCode> requestCode(const std::string& clientID,
                                                    GitHubTransport& transport,
                                                    Date now,
                                                    const std::stop_token& stop);

  /// What the body of a successful answer to a request for the token means.
  static Step step(std::string_view data, Seconds interval);

  /// Asks for the token until there is one or an end: at the latest when the code has expired, or
  /// at once when `stop` is requested.
  static GitHubDeviceFlowResult poll(const GitHubDeviceCode& code,
                                     const std::string& clientID,
                                     GitHubTransport& transport,
                                     const Sleep& sleep,
                                     const Clock& clock,
                                     const std::stop_token& stop);
};

}  // namespace tessivane
