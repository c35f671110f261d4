// The activity store with GitHub beside it: pull requests that both GitHub and a transcript tell.

#include <gmock/gmock.h>

#include "ActivityRun.h"
#include "helpers/DatabaseOwner.h"
#include "helpers/GitRepository.h"

namespace tessivane {
namespace {

using testing::ElementsAre;
using testing::IsEmpty;
using testing::SizeIs;

// Answers every search with the same pull requests.
class SameAnswer final : public GitHubTransport {
 public:
  std::optional<HTTPResponse> send(const HTTPRequest&, const std::stop_token&) override {
    ++asked;
    return HTTPResponse{
        .status = 200,
        .body = json{{"data", {{"search", {{"nodes", nodes}}}}}}.dump(),
    };
  }
  json nodes = json::array();
  int asked = 0;
};

class SignedIn final : public GitHubTokenStore {
 public:
  std::optional<GitHubSignIn> load() override {
    return GitHubSignIn{.login = "me", .token = "secret"};
  }
  bool save(const GitHubSignIn&) override { return true; }
  void remove() override {}
};

class BackendActivityGitHubTest : public ActivityRun {
 protected:
  BackendActivityGitHubTest() {
    auth_ = std::make_shared<GitHubAuth>(
        std::make_shared<SignedIn>(),
        [](const std::stop_token&) { return std::optional<std::string>(); },
        clock_.clock());
    gitHub_ = {.transport = gitHubAnswers_, .auth = auth_, .worker = &queue_};
    repository_.git({"remote", "add", "origin", "git@github.com:Me/Shed.git"});
    repository_.commit("Begin");
    clock_.set(repository_.now());
  }

  json pull(int number, const std::string& repo = "Me/Shed") const {
    return {{"number", number},
            {"title", "On GitHub"},
            {"createdAt", isoText(clock_.now())},
            {"updatedAt", isoText(clock_.now())},
            {"headRefName", "main"},
            {"repository", {{"nameWithOwner", repo}}}};
  }
  /// Until the next poll has come and what it told is published.
  void pollNext() { queue_.advance(Seconds(62)); }

  std::vector<std::string> pullRequests() const {
    std::vector<std::string> told;
    for (const ActivityEvent& event : stored().events) {
      if (event.kind == ActivityKind::prOpened)
        told.push_back(*event.ref + " " + event.projectName + " " + event.title);
    }
    return told;
  }

  GitRepository repository_{home_, "work/shed"};
  std::shared_ptr<SameAnswer> gitHubAnswers_ = std::make_shared<SameAnswer>();
  std::shared_ptr<GitHubAuth> auth_;
};

TEST_F(BackendActivityGitHubTest, IsAskedOnlyWhileThePersonWantsIt) {
  startWithSessions();
  pollNext();
  EXPECT_EQ(gitHubAnswers_->asked, 0);

  defaults_.set("activity.github", true);
  store().settingsDidChange();
  queue_.runPending();
  EXPECT_EQ(gitHubAnswers_->asked, 1);
  pollNext();
  EXPECT_EQ(gitHubAnswers_->asked, 2);
  auth_->remember("she", "another token");
  queue_.runPending();
  EXPECT_EQ(gitHubAnswers_->asked, 3) << "at once after another sign-in";

  defaults_.set("activity.github", false);
  store().settingsDidChange();
  pollNext();
  EXPECT_EQ(gitHubAnswers_->asked, 3);

  defaults_.set("activity.github", true);
  store().settingsDidChange();
  quit();
  auth_->remember("me", "another token");
  pollNext();
  EXPECT_EQ(gitHubAnswers_->asked, 3) << "not after the end";
}

TEST_F(BackendActivityGitHubTest, TellsAPullRequestOnceWhoeverIsFirst) {
  gitHubAnswers_->nodes = {pull(7), pull(9, "else/where")};
  addSession("a");
  home_.write(relative("a"), "", clock_.now());
  startWithSessions();
  defaults_.set("activity.github", true);
  store().settingsDidChange();
  queue_.advance(Seconds(1));
  batches_.clear();
  EXPECT_THAT(pullRequests(), ElementsAre("7 shed On GitHub", "9 where On GitHub"));
  for (const ActivityEvent& event : stored().events) {
    if (event.kind == ActivityKind::prOpened) {
      EXPECT_EQ(event.firstSeen, distantPast) << "a first poll is no news";
    }
  }

  // The transcript tells of one that GitHub told, and of one that GitHub tells next.
  openPullRequest("a", 7);
  openPullRequest("a", 8);
  files_.change(home_.path(relative("a")));
  queue_.advance(Seconds(2));
  ASSERT_THAT(events(), SizeIs(1));
  EXPECT_EQ(events()[0].title, "Add a door");
  EXPECT_EQ(events()[0].firstSeen, clock_.now() - std::chrono::seconds(2));
  gitHubAnswers_->nodes.push_back(pull(8));
  batches_.clear();
  pollNext();
  ASSERT_THAT(events(), SizeIs(1)) << "corrected in place";
  EXPECT_EQ(events()[0].title, "On GitHub");
  EXPECT_THAT(pullRequests(), SizeIs(3));

  batches_.clear();
  pollNext();
  EXPECT_THAT(batches_, IsEmpty()) << "nothing new";
}

TEST_F(BackendActivityGitHubTest, MakesGoodWhatALockPrevented) {
  defaults_.set("activity.github", true);
  startWithSessions();
  gitHubAnswers_->nodes = {pull(7)};
  {
    const DatabaseOwner other(dbPath_);
    other.run("begin immediate");
    pollNext();
    gitHubAnswers_->nodes = json::array();
  }
  queue_.advance(Seconds(70));
  EXPECT_THAT(pullRequests(), ElementsAre("7 shed On GitHub"));
}

}  // namespace
}  // namespace tessivane
