#include "github/GitHubAPI.h"

#include <deque>
#include <ostream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "CannedTransport.h"
#include "github/GitHubJSON.h"
#include "helpers/ManualClock.h"

namespace tessivane {

void PrintTo(const GitHubError& error, std::ostream* out) {
  *out << word(error) << " of kind " << static_cast<int>(error.kind);
  if (error.retryAfter)
    *out << " after " << error.retryAfter->count();
}

namespace {

using nlohmann::json;
using testing::HasSubstr;
using Kind = GitHubError::Kind;

constexpr Date now = ManualClock::defaultStart;

GitHubError limited(std::optional<Seconds> wait) {
  return {.kind = Kind::rateLimited, .retryAfter = wait};
}
GitHubError http(int status) {
  return {.kind = Kind::http, .status = status};
}

TEST(GitHubAPITest, ClassifiesByStatus) {
  struct Case {
    int status = 0;
    std::optional<GitHubError> error;
    const char* word = "";
  };
  const Case cases[] = {
      {199, http(199), "199"},
      {200, {}, ""},
      {299, {}, ""},
      {300, http(300), "300"},
      {401, GitHubError{.kind = Kind::unauthorized}, "401"},
      {403, limited({}), "403"},
      {429, limited({}), "403"},
      {502, http(502), "502"},
  };
  for (const Case& item : cases) {
    const auto error = GitHubAPI::classify({.status = item.status}, now);
    EXPECT_EQ(error, item.error) << item.status;
    EXPECT_EQ(error ? word(*error) : "", item.word);
  }
  EXPECT_EQ(GitHubAPI::classify({.status = 429, .headers = {{"retry-after", "7"}}}, now),
            limited(Seconds(7)));
}

TEST(GitHubAPITest, ReadsHowLongToWait) {
  struct Case {
    const char* name;
    std::vector<HTTPHeader> headers;
    std::optional<Seconds> wait;
  };
  const HTTPHeader exhausted{"X-RateLimit-Remaining", "0"};
  const HTTPHeader reset{"X-RateLimit-Reset",
                         std::to_string(static_cast<long>(secondsSince1970(now)) + 120)};
  const Case cases[] = {
      {"no headers", {}, {}},
      {"a number", {{"Retry-After", "30"}}, Seconds(30)},
      {"a fraction among blanks, in other letters", {{"retry-AFTER", " \t0.5 "}}, Seconds(0.5)},
      {"never below zero", {{"Retry-After", "-5"}}, Seconds(0)},
      {"a date is not understood", {{"Retry-After", "05 Oct 2026 09:02:00 GMT"}}, {}},
      {"not a number", {{"Retry-After", "nan"}}, {}},
      {"beyond any number", {{"Retry-After", "1e999"}}, {}},
      {"nothing in it", {{"Retry-After", ""}}, {}},
      {"an exhausted limit", {exhausted, reset}, Seconds(120)},
      {"one that is over", {exhausted, {"X-RateLimit-Reset", "1000"}}, Seconds(0)},
      {"one that is not exhausted", {{"X-RateLimit-Remaining", "1"}, reset}, {}},
      {"a reset alone", {reset}, {}},
      {"an exhausted limit without a reset", {exhausted}, {}},
      {"Retry-After comes first", {exhausted, reset, {"Retry-After", "3"}}, Seconds(3)},
      {"unless it cannot be read", {exhausted, reset, {"Retry-After", "?"}}, Seconds(120)},
  };
  for (const Case& item : cases)
    EXPECT_EQ(GitHubAPI::retryAfter({.status = 403, .headers = item.headers}, now), item.wait)
        << item.name;
}

TEST(GitHubAPITest, AsksInGitHubsForm) {
  const HTTPRequest request = GitHubAPI::graphQLRequest("abc", "query { a }", {{"q", "\xff\"ü"}});
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.url, "https://api.github.com/graphql");
  EXPECT_EQ(request.timeout, Seconds(60));
  EXPECT_THAT(request.headers,
              testing::UnorderedElementsAre(HTTPHeader{"Authorization", "bearer abc"},
                                            HTTPHeader{"User-Agent", "Tessivane-macOS"},
                                            HTTPHeader{"Content-Type", "application/json"},
                                            HTTPHeader{"Accept", "application/json"}));
  const json expected = {{"query", "query { a }"}, {"variables", {{"q", "\uFFFD\"ü"}}}};
  EXPECT_EQ(json::parse(request.body.value_or("")), expected);

  const HTTPRequest plain = GitHubAPI::graphQLRequest("abc", "query { a }", nullptr);
  EXPECT_EQ(json::parse(plain.body.value_or(""))["variables"], json::object());
}

// The data as text, or the error; and what the log was told.
struct Outcome {
  std::string text = {};
  std::optional<GitHubError> error = {};
  std::string log = {};
};

Outcome graphQL(std::deque<HTTPResponse> responses) {
  CannedTransport transport(std::move(responses));
  testing::internal::CaptureStderr();
  const auto result = GitHubAPI::graphQL("abc", "query { a }", nullptr, transport, now);
  Outcome outcome{.log = testing::internal::GetCapturedStderr()};
  if (const auto* error = std::get_if<GitHubError>(&result))
    outcome.error = *error;
  else
    outcome.text = std::get<json>(result).dump();
  return outcome;
}

TEST(GitHubAPITest, TakesTheDataOrTellsWhyThereIsNone) {
  struct Case {
    std::string body;
    std::string data;
    std::optional<GitHubError> error;
    std::string log;
  };
  constexpr GitHubError malformed{.kind = Kind::malformed};
  constexpr GitHubError noData{.kind = Kind::graphQL};
  const auto partial = [](const std::string& types) {
    return "Tessivane: GitHub GraphQL partial errors (" + types + ")\n";
  };
  // Few values, and yet too deep.
  const std::string deep = std::string(101, '[') + std::string(101, ']');
  const std::string brackets(50'000, '[');
  std::string many = "0";
  for (int i = 0; i < 25'000; ++i)
    many += ",0";
  const Case cases[] = {
      {R"({"data": {"a": 1}})", R"({"a":1})", {}, ""},
      {"", "", malformed, ""},
      {R"({"data": {"a": 1})", "", malformed, ""},
      {R"([{"data": {}}])", "", malformed, ""},
      {"{}", "", malformed, ""},
      {R"({"data": null})", "", malformed, ""},
      {"{\"data\": {\"a\": \"\xff\"}}", "", malformed, ""},
      {R"({"data": {"a": )" + deep + "}}", "", malformed, ""},
      {R"({"data": {"a": [)" + many + "]}}", "", malformed, ""},
      {R"({"data": {}})" + std::string(longestJSON, ' '), "", malformed, ""},
      {R"({"data": {"a": "\"\\)" + brackets + "\"}}", R"({"a":"\"\\)" + brackets + "\"}", {}, ""},

      {R"({"data": {}, "errors": null})", "", malformed, ""},
      {R"({"data": {}, "errors": {"type": "RATE_LIMITED"}})", "", malformed, ""},
      {R"({"data": {}, "errors": [{"type": "RATE_LIMITED"}, 7]})", "", malformed, ""},
      {R"({"errors": [{"type": "RATE_LIMITED"}]})", "", limited({}), ""},
      {R"({"data": {}, "errors": [{"type": "A"}, {"type": "RATE_LIMITED"}]})", "", limited({}), ""},
      {R"({"errors": [{"type": "FORBIDDEN"}]})", "", noData, ""},
      {R"({"data": null, "errors": [{}]})", "", noData, ""},
      {R"({"data": {"a": 1}, "errors": [{"type": "FORBIDDEN"}, {}, {"type": 7}]})",
       R"({"a":1})",
       {},
       partial("FORBIDDEN,unknown,unknown")},
      {R"({"data": {}, "errors": [{"type": "two\nlines"}]})", "{}", {}, partial("two lines")},
      {R"({"data": {}, "errors": [{"type": ")" + std::string(5'000, 'x') + R"("}]})",
       "{}",
       {},
       partial(std::string(200, 'x'))},
  };
  for (const Case& item : cases) {
    SCOPED_TRACE(item.body.substr(0, 100));
    const Outcome outcome = graphQL({{.status = 200, .body = item.body}});
    EXPECT_EQ(outcome.text, item.data);
    EXPECT_EQ(outcome.error, item.error);
    EXPECT_EQ(outcome.log, item.log);
  }
}

TEST(GitHubAPITest, LooksAtTheBodyOfASuccessOnly) {
  const HTTPResponse limit{.status = 200,
                           .headers = {{"Retry-After", "90"}},
                           .body = R"({"errors": [{"type": "RATE_LIMITED"}]})"};
  EXPECT_EQ(graphQL({limit}).error, limited(Seconds(90)));
  EXPECT_EQ(graphQL({{.status = 500, .body = R"({"data": {"a": 1}})"}}).error, http(500));
  EXPECT_EQ(graphQL({}).error, GitHubError{.kind = Kind::network});
}

TEST(GitHubAPITest, AsksWhoIsSignedIn) {
  const GitHubError malformed{.kind = Kind::malformed};
  const std::pair<const char*, GitHubResult<std::string>> cases[] = {
      {R"({"data": {"viewer": {"login": "octo"}}})", "octo"},
      {R"({"data": {"viewer": {"login": ""}}})", malformed},
      {R"({"data": {"viewer": "octo"}})", malformed},
      {R"({"data": {}})", malformed},
      {R"({"errors": [{}]})", GitHubError{.kind = Kind::graphQL}},
  };
  for (const auto& [body, login] : cases) {
    CannedTransport transport({{.status = 200, .body = body}});
    EXPECT_EQ(GitHubAPI::viewerLogin("abc", transport, now), login) << body;
    EXPECT_THAT(transport.requests.at(0).body.value_or(""),
                HasSubstr("query { viewer { login } }"));
  }
}

}  // namespace
}  // namespace tessivane
