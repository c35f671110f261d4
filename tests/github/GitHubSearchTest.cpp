#include "github/GitHubSearch.h"

#include <chrono>
#include <deque>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "CannedTransport.h"
#include "github/GitHubAPI.h"
#include "helpers/ChangedText.h"
#include "helpers/ManualClock.h"

namespace tessivane {
namespace {

using namespace std::chrono_literals;
using nlohmann::json;
using testing::IsEmpty;
using testing::SizeIs;

constexpr Date now = ManualClock::defaultStart;

json sampleNode() {
  return json::parse(R"({
    "number": 12, "title": "Read the tail first", "url": "https://github.com/o/r/pull/12",
    "createdAt": "2026-10-01T08:00:00Z", "mergedAt": "2026-10-02T08:00:00Z",
    "updatedAt": "2026-10-03T08:00:00Z", "state": "MERGED", "headRefName": "tail",
    "repository": {"nameWithOwner": "o/r", "url": "https://github.com/o/r",
                   "sshUrl": "git@github.com:o/r.git"}})");
}

GitHubPR samplePR() {
  return {.repo = "o/r",
          .number = 12,
          .title = "Read the tail first",
          .url = "https://github.com/o/r/pull/12",
          .createdAt = *isoDate("2026-10-01T08:00:00Z"),
          .mergedAt = isoDate("2026-10-02T08:00:00Z"),
          .updatedAt = *isoDate("2026-10-03T08:00:00Z"),
          .headRefName = "tail",
          .repoURL = "https://github.com/o/r",
          .sshURL = "git@github.com:o/r.git"};
}

// An answer with these nodes, and the cursor of the next page if there is one.
HTTPResponse answer(const std::vector<json>& nodes, const json& nextCursor = nullptr) {
  const json body = {
      {"data",
       {{"search",
         {{"nodes", nodes},
          {"pageInfo", {{"hasNextPage", !nextCursor.is_null()}, {"endCursor", nextCursor}}}}}}}};
  return {.status = 200, .body = body.dump()};
}

TEST(GitHubSearchTest, ReadsAPullRequest) {
  EXPECT_EQ(GitHubSearch::parseNode(sampleNode()), samplePR());
  // By the patch that was made to the sample.
  struct Case {
    const char* patch;
    void (*change)(GitHubPR&);
  };
  const Case cases[] = {
      {R"({"state": 7, "more": {}})", [](GitHubPR&) {}},
      {R"({"number": 9223372036854775807})",
       [](GitHubPR& pr) { pr.number = std::numeric_limits<std::int64_t>::max(); }},
      {R"({"title": " \n Two\t\r\n lines\u2028and "})",
       [](GitHubPR& pr) { pr.title = "Two lines and"; }},
      {R"({"title": null})", [](GitHubPR& pr) { pr.title = "PR #12"; }},
      {R"({"url": null})", [](GitHubPR&) {}},
      {R"({"mergedAt": "soon"})", [](GitHubPR& pr) { pr.mergedAt = {}; }},
      {R"({"updatedAt": "2026-10-03T08:00:00.25+02:00"})",
       [](GitHubPR& pr) { pr.updatedAt -= 2h - 250ms; }},
      {R"({"headRefName": null})", [](GitHubPR& pr) { pr.headRefName = {}; }},
      {R"({"repository": {"url": null, "sshUrl": 7}})",
       [](GitHubPR& pr) { pr.repoURL = pr.sshURL = {}; }},
  };
  for (const Case& item : cases) {
    json node = sampleNode();
    node.merge_patch(json::parse(item.patch));
    GitHubPR expected = samplePR();
    item.change(expected);
    EXPECT_EQ(GitHubSearch::parseNode(node), expected) << item.patch;
  }
  // Cut between what a person takes for characters, not between bytes.
  const std::string family = "👨‍👩‍👧";
  json node = sampleNode();
  node["title"] = fmt::format("{:a>199}{}{}", "", family, family);
  EXPECT_EQ(GitHubSearch::parseNode(node)->title, std::string(199, 'a') + family);
}

TEST(GitHubSearchTest, PassesOverWhatIsNoPullRequest) {
  for (const char* patch : {R"({"number": null})",
                            R"({"number": 12.5})",
                            R"({"number": 9223372036854775808})",
                            R"({"createdAt": null})",
                            R"({"updatedAt": "yesterday"})",
                            R"({"repository": null})",
                            R"({"repository": {"nameWithOwner": null}})"}) {
    json node = sampleNode();
    node.merge_patch(json::parse(patch));
    EXPECT_EQ(GitHubSearch::parseNode(node), std::nullopt) << patch;
  }
}

TEST(GitHubSearchTest, ReadsAPage) {
  // With "@" for the sample.
  struct Case {
    const char* data = "";
    std::size_t prs = 0;
    std::optional<std::string> cursor;
  };
  const std::string pr = sampleNode().dump();
  const Case cases[] = {
      {R"({"search": {"nodes": null, "pageInfo": null}})", 0, {}},
      {R"({"search": {"nodes": {"a": @}, "pageInfo": [true, "c"]}})", 0, {}},
      {R"({"search": {"nodes": [{}, @, null, "x", [@], {"number": 1}, @]}})", 2, {}},
      {R"({"search": {"nodes": [], "pageInfo": {"hasNextPage": true, "endCursor": "c"}}})", 0, "c"},
      {R"({"search": {"pageInfo": {"hasNextPage": true, "endCursor": null}}})", 0, {}},
      {R"({"search": {"pageInfo": {"hasNextPage": false, "endCursor": "c"}}})", 0, {}},
      {R"({"search": {"pageInfo": {"hasNextPage": 1, "endCursor": "c"}}})", 0, {}},
  };
  for (const Case& item : cases) {
    std::string text;
    for (const char* c = item.data; *c != '\0'; ++c)
      text += *c == '@' ? pr : std::string(1, *c);
    const auto page = GitHubSearch::parsePage(json::parse(text));
    ASSERT_TRUE(page) << item.data;
    EXPECT_THAT(page->prs, SizeIs(item.prs)) << item.data;
    EXPECT_EQ(page->nextCursor, item.cursor) << item.data;
  }
  for (const char* data : {"{}", R"({"search": []})", "[]"})
    EXPECT_FALSE(GitHubSearch::parsePage(json::parse(data))) << data;
  const json flood = {{"search", {{"nodes", std::vector(150, sampleNode())}}}};
  EXPECT_THAT(GitHubSearch::parsePage(flood)->prs, SizeIs(100));
}

// All else of the cursor is in GitHubPRSourceTest.cpp.
TEST(GitHubSearchTest, TheCursorStaysWithinTheCalendar) {
  EXPECT_EQ(GitHubSearch::nextCursor({{.updatedAt = distantPast}}, {}), distantPast);
}

TEST(GitHubSearchTest, StopsAtTheTenthPage) {
  std::deque<HTTPResponse> pages;
  for (int i = 0; i < 12; ++i) {
    json node = sampleNode();
    node["number"] = i;
    pages.push_back(answer({node}, "c" + std::to_string(i + 1)));
  }
  CannedTransport transport(pages);
  const auto result = GitHubSearch::fetchAll("octo", now + 123'456us, "abc", transport, now);
  const auto& prs = std::get<std::vector<GitHubPR>>(result);
  ASSERT_THAT(prs, SizeIs(10));
  ASSERT_THAT(transport.requests, SizeIs(10));
  for (std::size_t i = 0; i < 10; ++i) {
    EXPECT_EQ(prs[i].number, static_cast<std::int64_t>(i));
    const json body = json::parse(transport.requests[i].body.value_or(""));
    json variables = {{"q", "is:pr author:octo updated:>=2026-10-05T09:00:00Z"}};
    if (i > 0)
      variables["cursor"] = "c" + std::to_string(i);
    EXPECT_EQ(body["variables"], variables);
  }
}

TEST(GitHubSearchTest, EndsAtTheFirstPageThatFails) {
  struct Case {
    HTTPResponse second;
    GitHubError error;
  };
  const Case cases[] = {
      {{.status = 502}, {.kind = GitHubError::Kind::http, .status = 502}},
      {{.status = 200, .body = R"({"data": {"search": []}})"},
       {.kind = GitHubError::Kind::malformed}},
  };
  for (const Case& item : cases) {
    CannedTransport transport({answer({sampleNode()}, "c"), item.second, answer({})});
    const auto result = GitHubSearch::fetchAll("octo", now, "abc", transport, now);
    EXPECT_EQ(std::get<GitHubError>(result), item.error);
    EXPECT_THAT(transport.requests, SizeIs(2));
  }
  CannedTransport transport({answer({})});
  EXPECT_THAT(std::get<0>(GitHubSearch::fetchAll("octo", now, "abc", transport, now)), IsEmpty());
}

// Every place of a good answer, taken by every kind of value, and answers with bytes that were
// spoilt: whatever comes of it is a usable result.
TEST(GitHubSearchTest, BearsAnythingAnywhere) {
  const auto check = [](const std::string& body) {
    CannedTransport transport({{.status = 200, .body = body}});
    const auto result = GitHubSearch::fetchAll("octo", now, "abc", transport, now);
    const auto* prs = std::get_if<std::vector<GitHubPR>>(&result);
    for (const GitHubPR& pr : prs != nullptr ? *prs : std::vector<GitHubPR>()) {
      EXPECT_FALSE(pr.title.empty()) << body;
      EXPECT_GT(pr.updatedAt, distantPast) << body;
    }
  };
  testing::internal::CaptureStderr();
  const json whole = json::parse(answer({sampleNode()}, "c").body);
  const json values[] = {nullptr, true, -1, 1e300, "", "x", json::array({1}), {{"a", 1}}};
  const json places = whole.flatten();
  for (const auto& [place, value] : places.items()) {
    for (json::json_pointer pointer(place); !pointer.empty(); pointer.pop_back()) {
      for (const json& other : values) {
        json changed = whole;
        changed[pointer] = other;
        check(changed.dump());
      }
    }
  }
  std::mt19937 random(1);
  for (int i = 0; i < 2'000; ++i)
    check(changedText(whole.dump(), "\"\\{}[],:\xff\n0", random));
  testing::internal::GetCapturedStderr();
}

}  // namespace
}  // namespace tessivane
