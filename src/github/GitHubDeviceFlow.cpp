#include "github/GitHubDeviceFlow.h"

#include <algorithm>

#include <nlohmann/json.hpp>

#include "github/GitHubAPI.h"
#include "github/GitHubCredential.h"
#include "github/GitHubJSON.h"
#include "support/Text.h"

namespace tessivane {

namespace {

using nlohmann::json;
using Result = GitHubDeviceFlowResult;
using Kind = Result::Kind;

constexpr const char* scope = "repo read:user";
constexpr const char* grantType = "urn:ietf:params:oauth:grant-type:device_code";
constexpr Seconds shortestInterval{1};
// What is added when GitHub finds us too fast.
constexpr Seconds slowdown{5};

std::optional<Seconds> secondsField(const json& object, const char* key) {
  const auto found = object.find(key);
  if (found == object.end() || !found->is_number())
    return std::nullopt;
  return Seconds(found->get<double>());
}

// A text that is there and not empty.
std::string textField(const json& object, const char* key) {
  return stringField(object, key).value_or("");
}

// The page is handed to whatever the desktop opens links with, so it has to be one of the web.
bool isWebAddress(std::string_view text) {
  const bool isPrintable =
      std::ranges::all_of(text, [](char character) { return character > ' ' && character <= '~'; });
  for (const std::string_view scheme : {"https://", "http://"}) {
    if (text.starts_with(scheme) && text.size() > scheme.size() && text[scheme.size()] != '/')
      return isPrintable;
  }
  return false;
}

Result failed(std::string reason) {
  return {.kind = Kind::failed, .reason = std::move(reason)};
}

// What an answer with this status means, whatever its body.
GitHubDeviceFlow::Step stepOfResponse(const HTTPResponse& response, Seconds interval) {
  if (response.status >= 200 && response.status <= 299)
    return GitHubDeviceFlow::step(response.body, interval);
  if (response.status == 403 || response.status == 429)
    return interval + slowdown;
  return failed(std::to_string(response.status));
}

}  // namespace

HTTPRequest GitHubDeviceFlow::formRequest(const std::string& url, const Fields& fields) {
  std::string body;
  for (const auto& [name, value] : fields)
    body += (body.empty() ? "" : "&") + name + "=" + percentEncoded(value);
  return HTTPRequest{.method = "POST",
                     .url = url,
                     .headers = {{"Accept", "application/json"},
                                 {"Content-Type", "application/x-www-form-urlencoded"},
                                 {"User-Agent", GitHubAPI::userAgent}},
                     .body = std::move(body),
                     .timeout = Seconds(60)};
}

HTTPRequest GitHubDeviceFlow::codeRequest(const std::string& clientID) {
  return formRequest(codeURL, {{"client_id", clientID}, {"scope", scope}});
}

std::optional<GitHubDeviceCode> GitHubDeviceFlow::parseCode(std::string_view data) {
  const auto object = jsonObject(data);
  if (!object)
    return std::nullopt;
  GitHubDeviceCode code{.deviceCode = textField(*object, "device_code"),
                        .userCode = textField(*object, "user_code"),
                        .verificationURI = textField(*object, "verification_uri")};
  if (code.deviceCode.empty() || code.userCode.empty() || !isWebAddress(code.verificationURI))
    return std::nullopt;
  code.expiresIn = secondsField(*object, "expires_in").value_or(code.expiresIn);
  code.interval =
      std::max(secondsField(*object, "interval").value_or(code.interval), shortestInterval);
  return code;
}

GitHubResult<GitHubDeviceCode> GitHubDeviceFlow::requestCode(const std::string& clientID,
                                                             GitHubTransport& transport,
                                                             Date now,
                                                             const std::stop_token& stop) {
  const auto response = transport.send(codeRequest(clientID), stop);
  if (!response)
    return GitHubError{.kind = GitHubError::Kind::network};
  if (const auto error = GitHubAPI::classify(*response, now))
    return *error;
  auto code = parseCode(response->body);
  if (!code)
    return GitHubError{.kind = GitHubError::Kind::malformed};
  return *std::move(code);
}

GitHubDeviceFlow::Step GitHubDeviceFlow::step(std::string_view data, Seconds interval) {
  const auto object = jsonObject(data);
  if (!object)
    return failed("malformed");
  if (std::string token = textField(*object, "access_token"); !token.empty()) {
    if (!isGitHubToken(token))
      return failed("malformed");
    return Result{.kind = Kind::token, .token = std::move(token)};
  }
  const auto error = stringField(*object, "error");
  if (!error)
    return failed("malformed");
  if (*error == "authorization_pending")
    return interval;
  if (*error == "slow_down") {
    return std::max(secondsField(*object, "interval").value_or(interval + slowdown),
                    shortestInterval);
  }
  if (*error == "access_denied")
    return Result{.kind = Kind::denied};
  if (*error == "expired_token")
    return Result{.kind = Kind::expired};
  return failed(*error);
}

GitHubDeviceFlowResult GitHubDeviceFlow::poll(const GitHubDeviceCode& code,
                                              const std::string& clientID,
                                              GitHubTransport& transport,
                                              const Sleep& sleep,
                                              const Clock& clock,
                                              const std::stop_token& stop) {
  const Date deadline = shifted(clock(), code.expiresIn);
  const HTTPRequest request = formRequest(
      tokenURL,
      {{"client_id", clientID}, {"device_code", code.deviceCode}, {"grant_type", grantType}});
  Seconds interval = code.interval;
  for (;;) {
    sleep(interval, stop);
    if (stop.stop_requested())
      return {.kind = Kind::cancelled};
    if (clock() >= deadline)
      return {.kind = Kind::expired};
    const auto response = transport.send(request, stop);
    // The person's connection comes and goes; the code stays good.
    if (!response)
      continue;
    Step next = stepOfResponse(*response, interval);
    if (auto* const result = std::get_if<Result>(&next))
      return std::move(*result);
    interval = std::get<Seconds>(next);
  }
}

}  // namespace tessivane
