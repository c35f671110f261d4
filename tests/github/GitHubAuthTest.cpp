#include "github/GitHubAuth.h"

#include <atomic>
#include <thread>

#include <gtest/gtest.h>

#include "LockedTokenStore.h"
#include "helpers/ManualClock.h"
#include "helpers/ManualQueue.h"
#include "helpers/ScriptedGitHub.h"
#include "platform/MemoryUserDefaults.h"

namespace tessivane {
namespace {

using Source = GitHubCredentialSource;
using Credential = std::optional<GitHubCredential>;

const GitHubSignIn ann{.login = "ann", .token = "t1"};

class GitHubAuthTest : public testing::Test {
 protected:
  static Credential own(const std::string& token, const std::string& login) {
    return GitHubCredential{.token = token, .source = Source::tessivane, .login = login};
  }
  static Credential command(const std::string& token, std::optional<std::string> login = {}) {
    return GitHubCredential{.token = token, .source = Source::ghCLI, .login = std::move(login)};
  }

  ManualClock clock_;
  std::shared_ptr<FakeTokenStore> store_ = std::make_shared<FakeTokenStore>();
  std::optional<std::string> ghToken_;
  int ghRuns_ = 0;
  std::function<void()> duringGH_ = [] {};
  GitHubAuth auth_{store_,
                   [this](const std::stop_token&) {
                     ++ghRuns_;
                     auto token = ghToken_;
                     duringGH_();
                     return token;
                   },
                   clock_.clock()};
  int changes_ = 0;
  std::shared_ptr<void> observer_ = auth_.observe([this] { ++changes_; });
};

TEST_F(GitHubAuthTest, AnAnswerOfGHHoldsForFiveMinutes) {
  struct Step {
    Seconds pause;
    std::optional<std::string> answer;
    int runs;
    Credential credential;
  };
  const Step steps[] = {
      {Seconds(0), std::nullopt, 1, std::nullopt},
      // That there is none holds as long as a token does.
      {Seconds(299.9), "t1", 1, std::nullopt},
      {Seconds(0.1), "t1", 2, command("t1")},
      {Seconds(299.9), "t2", 2, command("t1")},
      {Seconds(0.1), "t2", 3, command("t2")},
  };
  for (const Step& step : steps) {
    clock_.advance(step.pause);
    ghToken_ = step.answer;
    EXPECT_EQ(auth_.credential(), step.credential);
    EXPECT_EQ(ghRuns_, step.runs);
  }
  // What was read before the clock was set back is of no known age.
  clock_.set(clock_.now() - std::chrono::hours(1));
  auth_.credential();
  EXPECT_EQ(ghRuns_, 4);
  EXPECT_EQ(changes_, 0);
}

TEST_F(GitHubAuthTest, AKeyringThatWasLockedIsAskedAgain) {
  ghToken_ = "t2";
  EXPECT_EQ(auth_.credential(), command("t2"));
  store_->signIn = ann;
  clock_.advance(Seconds(299.9));
  EXPECT_EQ(auth_.credential(), command("t2"));
  EXPECT_EQ(store_->loads, 1);
  EXPECT_EQ(changes_, 0);
  clock_.advance(Seconds(0.1));
  EXPECT_EQ(auth_.credential(), own("t1", "ann"));
  EXPECT_EQ(changes_, 1);

  // Locked again, it has told all there is to know.
  store_->signIn.reset();
  clock_.advance(std::chrono::hours(24));
  EXPECT_EQ(auth_.credential(), own("t1", "ann"));
  EXPECT_EQ(store_->loads, 2);
  EXPECT_EQ(ghRuns_, 1);
}

TEST_F(GitHubAuthTest, ARefusedTokenHasGHReadAfresh) {
  ghToken_ = "t1";
  EXPECT_EQ(auth_.credential(), command("t1"));
  auth_.markInvalid("t1");
  EXPECT_EQ(auth_.invalidToken(), "t1");
  EXPECT_EQ(changes_, 1);
  EXPECT_EQ(auth_.credential(), command("t1"));
  EXPECT_EQ(ghRuns_, 2);
  auth_.markInvalid("t1");
  EXPECT_EQ(changes_, 1);
  ghToken_ = "t2";
  EXPECT_EQ(auth_.credential(), command("t2"));

  // Refused while `gh` ran: that run gives no reading to keep.
  auth_.reread();
  duringGH_ = [this] { auth_.markInvalid("t2"); };
  EXPECT_EQ(auth_.credential(), command("t2"));
  duringGH_ = [] {};
  ghToken_ = "t3";
  EXPECT_EQ(auth_.credential(), command("t3"));
}

TEST_F(GitHubAuthTest, LoginsAreRememberedByToken) {
  ghToken_ = "t1";
  auth_.remember("ann", "t1");
  auth_.remember("ann", "t1");
  EXPECT_EQ(auth_.credential(), command("t1", "ann"));
  EXPECT_EQ(changes_, 1);
  auth_.remember("anna", "t1");
  EXPECT_EQ(changes_, 2);
  EXPECT_EQ(auth_.login("t1"), "anna");
  EXPECT_EQ(auth_.login("t2"), std::nullopt);
}

TEST_F(GitHubAuthTest, ANewSignInForgetsThatTheTokenWasRefused) {
  auth_.markInvalid("t1");
  EXPECT_TRUE(auth_.signIn("bob", "t2"));
  EXPECT_EQ(auth_.invalidToken(), "t1");
  EXPECT_TRUE(auth_.signIn("ann", "t1"));
  EXPECT_EQ(auth_.invalidToken(), std::nullopt);
  EXPECT_EQ(auth_.credential(), own("t1", "ann"));
  EXPECT_EQ(auth_.login("t1"), "ann");
  EXPECT_EQ(changes_, 3);

  store_->isWritable = false;
  store_->signIn.reset();
  EXPECT_FALSE(auth_.signIn("ann", "t3"));
  EXPECT_EQ(auth_.credential(), std::nullopt);
  EXPECT_EQ(changes_, 4);
}

TEST_F(GitHubAuthTest, ALoadThatASignInOvertakesIsRepeated) {
  store_->duringLoad = [this] {
    store_->duringLoad = nullptr;
    auth_.signIn("ann", "t1");
  };
  EXPECT_EQ(auth_.credential(), own("t1", "ann"));
  auth_.reread();
  store_->duringLoad = [this] {
    store_->duringLoad = nullptr;
    auth_.signOut();
  };
  EXPECT_EQ(auth_.credential(), std::nullopt);
  EXPECT_EQ(store_->loads, 4);
  EXPECT_EQ(changes_, 2) << "a new look alone is no news";
}

TEST_F(GitHubAuthTest, WhatWasCutShortIsNotKept) {
  std::stop_source stop;
  duringGH_ = [&] { stop.request_stop(); };
  EXPECT_EQ(auth_.credential(stop.get_token()), std::nullopt);
  duringGH_ = [] {};
  ghToken_ = "t1";
  EXPECT_EQ(auth_.credential(), command("t1"));
}

TEST_F(GitHubAuthTest, ObserversMayUseItAndGoAtAnyTime) {
  std::string seen;
  auto asking = auth_.observe([&] { seen = auth_.invalidToken().value_or("") + "!"; });
  std::shared_ptr<void> fickle;
  fickle = auth_.observe([&] { fickle.reset(); });
  auth_.markInvalid("t1");
  EXPECT_EQ(seen, "t1!");
  asking.reset();
  observer_.reset();
  auth_.markInvalid("t2");
  EXPECT_EQ(seen, "t1!");
  EXPECT_EQ(changes_, 1);
}

TEST(GitHubAuthThreads, EverybodyMayUseItAtOnce) {
  std::atomic<int> changes = 0;
  GitHubAuth auth(
      std::make_shared<LockedTokenStore>(),
      [](const std::stop_token&) { return std::optional<std::string>("gh"); },
      [] { return ManualClock::defaultStart; });
  const auto observer = auth.observe([&] { ++changes; });
  std::thread reader([&] {
    for (int i = 0; i < 2000; ++i)
      EXPECT_TRUE(auth.credential());
  });
  std::thread writer([&] {
    for (int i = 0; i < 500; ++i) {
      auth.signIn("ann", "t");
      // Whatever the reader has loaded meanwhile.
      EXPECT_EQ(auth.credential()->token, "t");
      auth.signOut();
      EXPECT_EQ(auth.credential()->token, "gh");
    }
  });
  for (int i = 0; i < 500; ++i) {
    const auto passing = auth.observe([] {});
    auth.markInvalid("gh");
    auth.remember("bob", "gh");
  }
  reader.join();
  writer.join();
  EXPECT_EQ(changes, 1002);
}

TEST(GitHubAuthClientID, IsATextThatIsNotBlank) {
  ManualClock clock;
  ManualQueue queue(clock);
  MemoryUserDefaults defaults(queue);
  EXPECT_EQ(GitHubAuth::clientID(defaults), std::nullopt);
  defaults.set("github.clientID", " \n");
  EXPECT_EQ(GitHubAuth::clientID(defaults), std::nullopt);
  defaults.set("github.clientID", " Iv1.0123\n");
  EXPECT_EQ(GitHubAuth::clientID(defaults), "Iv1.0123");
}

}  // namespace
}  // namespace tessivane
