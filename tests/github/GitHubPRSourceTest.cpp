#include "github/GitHubPRSource.h"

#include <deque>
#include <string>
#include <vector>

#include <fmt/format.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <nlohmann/json.hpp>

#include "github/GitHubAPI.h"
#include "helpers/ManualQueue.h"
#include "helpers/ScriptedGitHub.h"

namespace tessivane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;

// A page with a pull request for each of the dates, which is when it was made and updated.
HTTPResponse page(const std::vector<Date>& dates) {
  nlohmann::json nodes = nlohmann::json::array();
  for (const Date date : dates)
    nodes.push_back({{"number", nodes.size() + 1},
                     {"title", "T"},
                     {"createdAt", isoText(date)},
                     {"updatedAt", isoText(date)},
                     {"repository", {{"nameWithOwner", "me/shed"}}}});
  return searchPage(nodes);
}

class GitHubPRSourceTest : public testing::Test {
 protected:
  void poll() {
    queue_.runPending();
    worker_.runPending();
    queue_.runPending();
  }

  // Lets time pass until the next poll, and polls.
  void pollNext() {
    clock_.advance(source_->lastDelay().value_or(Seconds(0)));
    poll();
  }

  std::vector<double> delaysOver(std::deque<HTTPResponse> answers) {
    std::vector<double> delays;
    const auto count = answers.size();
    transport_->answers = std::move(answers);
    for (std::size_t i = 0; i < count; ++i) {
      pollNext();
      delays.push_back(source_->lastDelay().value_or(Seconds(-1)).count());
    }
    return delays;
  }

  std::string lastSearch() {
    return transport_->requests.back().at("variables").at("q").get<std::string>();
  }

  ManualClock clock_;
  ManualQueue queue_{clock_};
  ManualQueue worker_{clock_};
  std::shared_ptr<ScriptedTransport> transport_ = std::make_shared<ScriptedTransport>();
  std::shared_ptr<FakeTokenStore> store_ =
      std::make_shared<FakeTokenStore>(GitHubSignIn{.login = "me", .token = "secret"});
  std::optional<std::string> ghToken_;
  std::shared_ptr<GitHubAuth> auth_ = std::make_shared<GitHubAuth>(
      store_, [this](const std::stop_token&) { return ghToken_; }, clock_.clock());
  std::optional<std::string> cursor_;
  std::vector<std::string> delivered_;  // "{count}" with "+" for a catch-up
  std::shared_ptr<GitHubPRSource> source_ = std::make_shared<GitHubPRSource>(
      GitHubPRSource::Environment{.transport = transport_, .auth = auth_, .worker = &worker_},
      queue_,
      GitHubPRSource::Owner{.clock = clock_.clock(),
                            .loadCursor = [this] { return cursor_; },
                            .saveCursor = [this](const std::string& text) { cursor_ = text; },
                            .deliver =
                                [this](const std::vector<GitHubPR>& prs, bool catchUp) {
                                  delivered_.push_back(std::to_string(prs.size()) +
                                                       (catchUp ? "+" : ""));
                                }});
};

TEST_F(GitHubPRSourceTest, SlowsDownAfterFailuresAndRecovers) {
  const HTTPResponse bad{.status = 502};
  const auto limited = [](const char* wait) {
    return HTTPResponse{.status = 429, .headers = {{.name = "retry-after", .value = wait}}};
  };
  source_->start();
  EXPECT_THAT(delaysOver({bad, bad, bad, bad, bad, page({}), bad}),
              ElementsAre(60, 120, 300, 600, 600, 60, 60));
  EXPECT_THAT(delaysOver({page({}), limited("1200"), limited("10"), HTTPResponse{.status = 403}}),
              ElementsAre(60, 1200, 120, 300));
  EXPECT_EQ(source_->completedPolls(), 11);
  EXPECT_THAT(delivered_, ElementsAre("0+", "0"));
  clock_.advance(Seconds(299));
  poll();
  EXPECT_EQ(source_->completedPolls(), 11) << "not before its time";
}

TEST_F(GitHubPRSourceTest, AsksFromItsCursorWhichOnlyMovesForward) {
  const Date start = clock_.now();
  const auto since = [](Date date) { return "is:pr author:me updated:>=" + isoText(date); };
  const auto hours = [start](int count) { return start - std::chrono::hours(count); };
  using std::chrono::seconds;
  cursor_ = isoText(hours(72));
  transport_->answers = {page({hours(3), hours(2)}), page({hours(4)}), page({}), page({hours(1)})};

  source_->start();
  poll();
  EXPECT_EQ(lastSearch(), since(hours(48)));
  EXPECT_EQ(cursor_, isoText(hours(2) - seconds(120)));
  pollNext();
  EXPECT_EQ(lastSearch(), since(hours(2) - seconds(120)));
  EXPECT_EQ(cursor_, isoText(hours(2) - seconds(120))) << "not back";
  pollNext();
  EXPECT_EQ(cursor_, isoText(hours(2) - seconds(120))) << "nothing told";
  pollNext();
  EXPECT_EQ(cursor_, isoText(hours(1) - seconds(120)));
  EXPECT_THAT(delivered_, ElementsAre("2+", "1", "0", "1"));

  // A cursor from the future, as a clock that was wrong leaves it, is made good by the next run.
  source_->stop();
  cursor_ = isoText(start + std::chrono::hours(9000));
  transport_->answers = {page({hours(1)})};
  source_->start();
  poll();
  EXPECT_EQ(cursor_, isoText(hours(1) - seconds(120)));
  cursor_ = "no date";
  pollNext();
  EXPECT_EQ(lastSearch(), since(clock_.now() - std::chrono::hours(48)));
}

TEST_F(GitHubPRSourceTest, WhatWasUnderWayWhenItStoppedCountsForNothing) {
  transport_->answers = {page({clock_.now()}), page({clock_.now()})};
  source_->start();
  queue_.runPending();
  source_->stop();
  source_->start();
  queue_.runPending();
  worker_.runPending();  // the first poll finds that it was cancelled
  queue_.runPending();
  EXPECT_THAT(delivered_, ElementsAre("1+"));
  EXPECT_EQ(source_->completedPolls(), 1);

  source_->stop();
  pollNext();
  EXPECT_EQ(source_->completedPolls(), 1);

  source_->start();
  queue_.runPending();
  source_.reset();
  worker_.runPending();
  queue_.runPending();
  EXPECT_THAT(delivered_, ElementsAre("1+"));
}

TEST_F(GitHubPRSourceTest, LeavesARefusedTokenAlone) {
  transport_->answers = {HTTPResponse{.status = 401}};
  source_->start();
  poll();
  EXPECT_EQ(auth_->invalidToken(), "secret");
  const auto asked = transport_->requests.size();
  pollNext();
  pollNext();
  EXPECT_EQ(transport_->requests.size(), asked);
  EXPECT_EQ(source_->lastDelay(), Seconds(60));
  EXPECT_EQ(source_->completedPolls(), 3);
}

TEST_F(GitHubPRSourceTest, AsksOnceWhoIsSignedIn) {
  store_->signIn.reset();
  source_->start();
  poll();
  EXPECT_THAT(transport_->requests, IsEmpty()) << "signed out";

  ghToken_ = "other";
  clock_.advance(Seconds(300));
  transport_->answers = {
      {.status = 200, .body = R"({"data":{"viewer":{"login":"she"}}})"}, page({}), page({})};
  poll();
  EXPECT_EQ(transport_->requests.size(), 2U);
  EXPECT_THAT(lastSearch(), testing::HasSubstr("author:she "));
  pollNext();
  EXPECT_EQ(transport_->requests.size(), 3U);
}

}  // namespace
}  // namespace tessivane
