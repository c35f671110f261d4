#include "github/GitHubAPI.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdio>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "github/GitHubJSON.h"
#include "support/Text.h"

namespace tessivane {

namespace {

using nlohmann::json;
using Kind = GitHubError::Kind;

std::optional<double> number(std::optional<std::string> text) {
  const std::string_view digits = trimmed(text ? *text : std::string_view());
  double value = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
  if (error != std::errc() || end != digits.data() + digits.size() || !std::isfinite(value))
    return std::nullopt;
  return value;
}

// What kinds of errors an answer tells of; nothing when it is no list of errors.
std::optional<std::vector<std::string>> errorTypes(const json& errors) {
  if (!errors.is_array())
    return std::nullopt;
  std::vector<std::string> types;
  for (const json& error : errors) {
    if (!error.is_object())
      return std::nullopt;
    types.push_back(stringField(error, "type").value_or("unknown"));
  }
  return types;
}

void logPartial(const std::vector<std::string>& types) {
  std::string joined;
  for (const std::string& type : types)
    joined += (joined.empty() ? "" : ",") + type;
  // On one line of bearable length, whatever came.
  const std::string line(prefixCharacters(collapsedWhitespace(joined), 200));
  std::fprintf(stderr, "Tessivane: GitHub GraphQL partial errors (%s)\n", line.c_str());
}

GitHubResult<json> dataOf(json answer, std::optional<Seconds> retryAfter) {
  const bool hasData = objectField(answer, "data") != nullptr;
  const auto errors = answer.find("errors");
  if (errors == answer.end()) {
    if (!hasData)
      return GitHubError{.kind = Kind::malformed};
    return std::move(answer["data"]);
  }
  const auto types = errorTypes(*errors);
  if (!types)
    return GitHubError{.kind = Kind::malformed};
  if (std::ranges::find(*types, "RATE_LIMITED") != types->end())
    return GitHubError{.kind = Kind::rateLimited, .retryAfter = retryAfter};
  if (!hasData)
    return GitHubError{.kind = Kind::graphQL};
  logPartial(*types);
  return std::move(answer["data"]);
}

}  // namespace

HTTPRequest GitHubAPI::graphQLRequest(std::string_view token,
                                      std::string_view query,
                                      const json& variables) {
  const json body = {{"query", query},
                     {"variables", variables.is_object() ? variables : json::object()}};
  std::string authorization = "bearer ";
  // At once, so that the token is left in no smaller memory on the way.
  authorization.reserve(authorization.size() + token.size());
  authorization += token;
  HTTPRequest request{.method = "POST",
                      .url = graphQLURL,
                      .headers = {},
                      .body = body.dump(-1, ' ', false, json::error_handler_t::replace),
                      .timeout = std::chrono::seconds{60}};
  request.headers.reserve(4);
  request.headers.push_back({.name = "Authorization", .value = std::move(authorization)});
  request.headers.push_back({.name = "User-Agent", .value = userAgent});
  request.headers.push_back({.name = "Content-Type", .value = "application/json"});
  request.headers.push_back({.name = "Accept", .value = "application/json"});
  return request;
}

std::optional<GitHubError> GitHubAPI::classify(const HTTPResponse& response, Date now) {
  if (response.status >= 200 && response.status <= 299)
    return std::nullopt;
  if (response.status == 401)
    return GitHubError{.kind = Kind::unauthorized};
  if (response.status == 403 || response.status == 429)
    return GitHubError{.kind = Kind::rateLimited, .retryAfter = retryAfter(response, now)};
  return GitHubError{.kind = Kind::http, .status = response.status};
}

std::optional<Seconds> GitHubAPI::retryAfter(const HTTPResponse& response, Date now) {
  if (const auto wait = number(response.header("Retry-After")))
    return Seconds(std::max(*wait, 0.0));
  const auto reset = number(response.header("X-RateLimit-Reset"));
  if (response.header("X-RateLimit-Remaining") != "0" || !reset)
    return std::nullopt;
  return Seconds(std::max(*reset - secondsSince1970(now), 0.0));
}

GitHubResult<json> GitHubAPI::graphQL(std::string_view token,
                                      std::string_view query,
                                      const json& variables,
                                      GitHubTransport& transport,
                                      Date now,
                                      const std::stop_token& stop) {
  HTTPRequest request = graphQLRequest(token, query, variables);
  const std::optional<HTTPResponse> response = transport.send(request, stop);
  wipe(request);
  if (!response)
    return GitHubError{.kind = Kind::network};
  if (const auto error = classify(*response, now))
    return *error;
  std::optional<json> answer = jsonObject(response->body);
  if (!answer)
    return GitHubError{.kind = Kind::malformed};
  return dataOf(*std::move(answer), retryAfter(*response, now));
}

GitHubResult<std::string> GitHubAPI::viewerLogin(std::string_view token,
                                                 GitHubTransport& transport,
                                                 Date now,
                                                 const std::stop_token& stop) {
  const auto data = graphQL(token, "query { viewer { login } }", nullptr, transport, now, stop);
  if (const auto* error = std::get_if<GitHubError>(&data))
    return *error;
  const json* const viewer = objectField(std::get<json>(data), "viewer");
  auto login = viewer != nullptr ? stringField(*viewer, "login") : std::nullopt;
  if (!login || login->empty())
    return GitHubError{.kind = Kind::malformed};
  return *std::move(login);
}

}  // namespace tessivane
