// Pull requests from GitHub in the activity store: where they are filed, what becomes of those that
// a transcript has told of, and from where the next poll asks.

#include <chrono>
#include <filesystem>

#include <gmock/gmock.h>

#include "ActivityRun.h"
#include "helpers/DatabaseOwner.h"
#include "helpers/GitRepository.h"
#include "helpers/ScriptedGitHub.h"

namespace tessivane {
namespace {

using namespace std::chrono_literals;
using testing::AllOf;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Not;

class BackendActivityGitHubTest : public ActivityRun {
 protected:
  BackendActivityGitHubTest() {
    gitHub_ =
        GitHubPRSource::Environment{.transport = transport_, .auth = auth_, .worker = &worker_};
    defaults_.set("activity.github", true);
  }

  json pullRequest(int number, const std::string& title, Seconds age = 60s) const {
    const std::string date = isoText(shifted(clock_.now(), -age));
    return {{"number", number},
            {"title", title},
            {"createdAt", date},
            {"updatedAt", date},
            {"headRefName", "door"},
            {"repository", {{"nameWithOwner", "Me/Shed"}}}};
  }
  /// The next poll, with these on its page, and the batches that follow.
  void poll(const std::vector<json>& nodes) {
    transport_->answers.push_back(searchPage(nodes));
    queue_.advance(60s);
    worker_.runPending();
    queue_.advance(2s);
  }
  /// "{kind} {project} {session} {title}" of what was told since the last call.
  std::vector<std::string> told() {
    std::vector<std::string> all;
    for (const ActivityEvent& event : events()) {
      all.push_back(std::string(rawValue(event.kind)) + " " + event.projectName + " " +
                    event.sessionID.value_or("-") + " " + event.title);
    }
    batches_.clear();
    return all;
  }
  std::string lastSearch() const {
    return transport_->requests.back().at("variables").at("q").get<std::string>();
  }

  ManualQueue worker_{clock_};
  std::shared_ptr<ScriptedTransport> transport_ = std::make_shared<ScriptedTransport>();
  std::shared_ptr<FakeTokenStore> tokens_ =
      std::make_shared<FakeTokenStore>(GitHubSignIn{.login = "me", .token = "secret"});
  std::shared_ptr<GitHubAuth> auth_ = std::make_shared<GitHubAuth>(
      tokens_, [](const std::stop_token&) { return std::nullopt; }, clock_.clock());
};

TEST_F(BackendActivityGitHubTest, FilesPullRequestsWhereTheyBelong) {
  GitRepository shed(home_, "code/shed");
  shed.commit("Begin");
  shed.git({"remote", "add", "fork", "git@github.com:Me/Shed.git"});
  clock_.set(shed.now());
  start();
  refresh();
  poll({pullRequest(1, "First")});
  EXPECT_EQ(events().at(0).firstSeen, distantPast) << "what a first poll tells is no news";
  EXPECT_EQ(events().at(0).projectRoot, "github:me/shed");
  EXPECT_THAT(told(), ElementsAre("prOpened shed - First"));

  // From now on there is a clone, and a session on the branch.
  addSession("a");
  sayOn("a", "main");
  sayOn("a", "door");
  refresh();
  told();
  json merged = pullRequest(2, "Second", 0s);
  merged["mergedAt"] = isoText(clock_.now());
  poll({pullRequest(1, "First", 182s), merged, pullRequest(3, "Old", 49h)});
  EXPECT_EQ(events().at(1).firstSeen, events().at(1).date + 60s);
  EXPECT_THAT(told(),
              ElementsAre("prOpened shed - First",
                          "prOpened shed claude:a Second",
                          "prMerged shed claude:a Second"));
  EXPECT_EQ(stored().events.back().projectRoot, home_.path("code/shed"));
  poll({pullRequest(1, "First", 244s)});
  EXPECT_THAT(told(), IsEmpty());
}

TEST_F(BackendActivityGitHubTest, ImprovesWhatATranscriptTold) {
  addSessionWithTranscript("a");
  start();
  refresh();
  poll({});
  openPullRequest("a", 7);
  refresh();
  queue_.runPending();
  queue_.advance(2s);
  EXPECT_THAT(told(), ElementsAre("prOpened shed claude:a Add a door"));
  // Told by both within one batch, it is handed over once.
  queue_.advance(60s);
  openPullRequest("a", 9);
  files_.change(home_.path(relative("a")));
  queue_.runPending();
  EXPECT_EQ(told().size(), 1U);
  openPullRequest("a", 8);
  files_.change(home_.path(relative("a")));
  queue_.runPending();
  transport_->answers.push_back(
      searchPage({pullRequest(7, "A red door"), pullRequest(8, "A blue door")}));
  worker_.runPending();
  queue_.advance(2s);
  EXPECT_THAT(
      told(),
      ElementsAre("prOpened shed claude:a A red door", "prOpened shed claude:a A blue door"));
  EXPECT_EQ(stored().events.size(), 3U);
}

TEST_F(BackendActivityGitHubTest, AsksAgainForWhatCouldNotBeStored) {
  home_.makeDirectory("data");
  const DatabaseOwner other(dbPath_);
  start();
  refresh();
  poll({pullRequest(1, "First")});
  poll({});
  const std::string search = lastSearch();
  other.run("begin immediate; create table theirs(x)");
  poll({pullRequest(2, "Second")});
  poll({pullRequest(2, "Second")});
  EXPECT_EQ(lastSearch(), search);
  other.run("commit");
  told();
  queue_.advance(61s);
  EXPECT_THAT(told(), ElementsAre("prOpened shed - Second"));
  poll({});
  poll({});
  EXPECT_NE(lastSearch(), search);
}

// How far GitHub was asked is lost with the file, also for a request that is on its way.
TEST_F(BackendActivityGitHubTest, AsksForEverythingWhenTheDatabaseIsGone) {
  start();
  refresh();
  for (const bool answersFirst : {true, false}) {
    poll({pullRequest(1, "First")});
    poll({});
    const std::string fromCursor = lastSearch();
    queue_.advance(60s);
    std::filesystem::remove_all(home_.path("data"));
    transport_->answers.push_back(searchPage(json::array({pullRequest(2, "Second")})));
    if (answersFirst)
      worker_.runPending();
    refresh();
    transport_->answers = {searchPage({pullRequest(1, "First"), pullRequest(2, "Second")})};
    worker_.runPending();
    queue_.advance(2s);
    EXPECT_LT(lastSearch(), fromCursor);
    EXPECT_EQ(stored().events.size(), 2U);
  }
}

TEST_F(BackendActivityGitHubTest, KeepsTheTokenOutOfFilesAndWords) {
  const std::string token = "gho_0123456789abcdef";
  tokens_->signIn->token = token;
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  start();
  refresh();
  poll({pullRequest(1, "First")});
  // A server that repeats what it was asked with.
  const std::string echo = json{{"errors", {{{"type", token}}}}, {"token", token}}.dump();
  for (const int status : {500, 200, 429, 401}) {
    transport_->answers.push_back({.status = status, .body = echo});
    queue_.advance(Seconds(700));
    worker_.runPending();
    queue_.advance(2s);
  }
  const std::string words =
      testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
  EXPECT_EQ(auth_->invalidToken(), token) << "it was in use";
  EXPECT_THAT(words, HasSubstr("poll failed (500)"));
  EXPECT_THAT(words, Not(HasSubstr(token)));
  EXPECT_THAT(home_.listing(), AllOf(HasSubstr("First"), Not(HasSubstr(token))));
}

TEST_F(BackendActivityGitHubTest, AsksWhileItIsWantedAndWhenTheSignInChanges) {
  const auto requests = [this](Seconds later = 0s) {
    queue_.advance(later);
    worker_.runPending();
    queue_.runPending();
    return transport_->requests.size();
  };
  const auto set = [this](bool isWanted) {
    defaults_.set("activity.github", isWanted);
    store().settingsDidChange();
  };
  defaults_.remove("activity.github");
  start();
  refresh();
  EXPECT_EQ(requests(62s), 0U);
  set(true);
  EXPECT_EQ(requests(), 1U);
  auth_->signIn("you", "other");
  EXPECT_EQ(requests(), 2U);
  store().settingsDidChange();  // of another setting
  EXPECT_EQ(requests(), 2U);
  set(false);
  queue_.advance(600s);
  auth_->signIn("me", "secret");
  EXPECT_EQ(requests(600s), 2U);
}

}  // namespace
}  // namespace tessivane
