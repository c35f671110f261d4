// The API over the live transport, against a server on the loopback interface.

#include "github/GitHubURLSessionTransport.h"

#include <array>
#include <fstream>
#include <string>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "github/GitHubAPI.h"
#include "github/GitHubJSON.h"
#include "github/GitHubSearch.h"
#include "helpers/LoopbackServer.h"
#include "helpers/ManualClock.h"
#include "helpers/RedirectedTransport.h"

namespace tessivane {
namespace {

using nlohmann::json;
using testing::Contains;
using testing::Each;
using testing::SizeIs;
using Answer = LoopbackServer::Answer;
using Kind = GitHubError::Kind;

constexpr Date now = ManualClock::defaultStart;
// Would be seen in any log or text that it gets into.
constexpr std::string_view token = "gho_secret";

GitHubResult<json> ask(const LoopbackServer& server) {
  RedirectedTransport transport(server.origin());
  return GitHubAPI::graphQL(token, "query { a }", nullptr, transport, now);
}

TEST(GitHubURLSessionTransportTest, FetchesAllPages) {
  // Three pages of 100, of which each names the next one's first number as its cursor.
  const LoopbackServer server([](const HTTPRequest& request) {
    const json body = json::parse(request.body.value_or(""), nullptr, false);
    const int first = std::stoi(body["variables"].value("cursor", "0"));
    json nodes = json::array();
    for (int i = first; i < first + 100; ++i)
      nodes.push_back({{"number", i},
                       {"createdAt", "2026-10-01T08:00:00Z"},
                       {"updatedAt", "2026-10-03T08:00:00Z"},
                       {"repository", {{"nameWithOwner", "o/r"}}}});
    const json search = {
        {"nodes", nodes},
        {"pageInfo", {{"hasNextPage", first < 200}, {"endCursor", std::to_string(first + 100)}}}};
    return Answer{.body = json{{"data", {{"search", search}}}}.dump()};
  });
  RedirectedTransport transport(server.origin());
  const auto result = GitHubSearch::fetchAll("octo", now, token, transport, now);
  ASSERT_TRUE(std::holds_alternative<std::vector<GitHubPR>>(result));
  const auto& prs = std::get<std::vector<GitHubPR>>(result);
  ASSERT_THAT(prs, SizeIs(300));
  for (std::size_t i = 0; i < prs.size(); ++i)
    EXPECT_EQ(prs[i].number, static_cast<std::int64_t>(i));

  EXPECT_THAT(transport.urls(), SizeIs(3));
  EXPECT_THAT(transport.urls(), Each(GitHubAPI::graphQLURL));
  for (const HTTPRequest& request : server.requests()) {
    EXPECT_EQ(request.method, "POST");
    EXPECT_EQ(request.url, "/graphql");
    EXPECT_THAT(request.headers, Contains(HTTPHeader{"Authorization", "bearer gho_secret"}));
    EXPECT_THAT(request.headers, Contains(HTTPHeader{"User-Agent", "Tessivane-macOS"}));
  }
}

TEST(GitHubURLSessionTransportTest, TellsEveryFaultApart) {
  struct Case {
    const char* name = "";
    Answer answer;
    GitHubError error;
  };
  const std::string text = R"({"data": {}})";
  const GitHubError network{.kind = Kind::network};
  const GitHubError malformed{.kind = Kind::malformed};
  const Case cases[] = {
      {"a refused token", {.status = 401, .body = text}, {.kind = Kind::unauthorized}},
      {"a limit", {.status = 403}, {.kind = Kind::rateLimited}},
      {"a limit with a wait",
       {.status = 403, .headers = {{"retry-after", "30"}}},
       {.kind = Kind::rateLimited, .retryAfter = Seconds(30)}},
      {"too many requests", {.status = 429}, {.kind = Kind::rateLimited}},
      {"a fault of the server", {.status = 500}, {.kind = Kind::http, .status = 500}},
      {"a page of a proxy", {.body = "<html></html>"}, malformed},
      {"ill-formed text", {.body = "{\"data\": {\"a\": \"\xc3\"}}"}, malformed},
      {"brackets only", {.body = std::string(longestJSON, '[')}, malformed},
      {"a long text", {.body = text + std::string(longestJSON, ' ')}, malformed},
      {"40 MB", {.body = text + std::string(40 << 20, ' ')}, network},
      {"cut in the middle", {.body = text + std::string(500, ' '), .cutAfter = 300}, network},
      {"cut in the head", {.raw = "HTTP/1.1 200 OK\r\n"}, network},
      {"an end without a beginning", {.cutAfter = 0}, network},
  };
  testing::internal::CaptureStderr();
  for (const Case& item : cases) {
    SCOPED_TRACE(item.name);
    const LoopbackServer server([&](const HTTPRequest&) { return item.answer; });
    const auto result = ask(server);
    ASSERT_TRUE(std::holds_alternative<GitHubError>(result));
    EXPECT_EQ(std::get<GitHubError>(result), item.error);
  }
  for (const auto kind : {LoopbackServer::Kind::https, LoopbackServer::Kind::closed}) {
    const LoopbackServer server({}, kind);
    EXPECT_EQ(std::get<GitHubError>(ask(server)), network);
    EXPECT_THAT(server.requests(), SizeIs(0));
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// The most memory that this process has had since the last look, in bytes.
std::size_t peakMemory() {
  std::ifstream status("/proc/self/status");
  std::string word;
  std::size_t kilobytes = 0;
  while (status >> word) {
    if (word == "VmHWM:")
      status >> kilobytes;
  }
  std::ofstream("/proc/self/clear_refs") << 5;
  return kilobytes << 10;
}

TEST(GitHubURLSessionTransportTest, NoAnswerTakesUpMuchMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer needs memory of its own";
#endif
  // As long as one that is read may be; the second of each triple is repeated.
  const std::string node =
      R"({"number":1,"createdAt":"2026-10-01T08:00:00Z","updatedAt":"2026-10-03T08:00:00Z",)"
      R"("repository":{"nameWithOwner":"o/r"},"url":")" +
      std::string(longestJSON / 100, 'x') + "\"},";
  const std::array<std::string, 3> parts[] = {
      {R"({"data":{"a":")", "text", "\"}}"},
      {R"({"data":{"a":")", "\\n", "\"}}"},
      {R"({"data":{"a":[)", '"' + std::string(longestJSON / 19'900, 'x') + "\",", "0]}}"},
      {R"({"data":{"a":[)", R"({"a":{}},)", "0]}}"},
      {R"({"data":{"search":{"pageInfo":{"hasNextPage":true,"endCursor":"c"},"nodes":[)",
       node,
       "0]}}}"},
  };
  for (const auto& [head, unit, tail] : parts) {
    SCOPED_TRACE(unit.substr(0, 20));
    std::string body = head;
    body.reserve(longestJSON);
    while (body.size() + unit.size() + tail.size() <= longestJSON)
      body += unit;
    body += tail;
    const LoopbackServer server([&](const HTTPRequest&) { return Answer{.body = body}; });
    RedirectedTransport transport(server.origin());
    peakMemory();
    const auto before = peakMemory();
    GitHubSearch::fetchAll("octo", now, token, transport, now);
    EXPECT_LT(peakMemory(), before + (std::size_t{20} << 20));
  }
}

}  // namespace
}  // namespace tessivane
