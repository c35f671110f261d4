#include "github/GitHubAccountModel.h"

#include <gtest/gtest.h>

#include "CannedTransport.h"
#include "helpers/ManualClock.h"
#include "helpers/ManualQueue.h"
#include "helpers/ScriptedGitHub.h"
#include "platform/MemoryUserDefaults.h"

namespace tessivane {
namespace {

using Model = GitHubAccountModel;
using Source = GitHubCredentialSource;

HTTPResponse answer(const std::string& body) {
  return {.status = 200, .body = body};
}
HTTPResponse viewer(const std::string& login) {
  return answer(R"({"data":{"viewer":{"login":")" + login + R"("}}})");
}
HTTPResponse refusal(const std::string& error) {
  return answer(R"({"error":")" + error + R"("})");
}

const HTTPResponse code = answer(
    R"({"device_code":"d","user_code":"AB-12","verification_uri":"https://github.com/login/device"})");
const HTTPResponse token = answer(R"({"access_token":"t1"})");

Model::Status signedIn(std::optional<std::string> login, Source source) {
  return Model::SignedIn{std::move(login), source};
}
Model::Status invalid(Source source) {
  return Model::Invalid{source};
}
Model::SignIn failed(const std::string& sentence) {
  return Model::Failed{sentence};
}
const Model::Status checking = Model::Checking{};
const Model::Status signedOut = Model::SignedOut{};
const Model::SignIn idle = Model::Idle{};

class GitHubAccountModelTest : public testing::Test {
 protected:
  GitHubAccountModelTest() { defaults_.set("github.clientID", "id"); }

  // Runs all queues until nothing is left to do.
  void run() {
    while (main_.runPending() + worker_.runPending() + signInWorker_.runPending() > 0) {
    }
  }
  void refresh(bool reload = false) {
    model_->refresh(reload);
    run();
  }
  const Model::Status& status() const { return model_->status().value(); }
  const Model::SignIn& signIn() const { return model_->signIn().value(); }

  void signInWith(std::deque<HTTPResponse> answers) {
    transport_->answers = std::move(answers);
    model_->startSignIn();
    run();
  }

  ManualClock clock_;
  ManualQueue main_{clock_};
  ManualQueue worker_{clock_};
  ManualQueue signInWorker_{clock_};
  MemoryUserDefaults defaults_{main_};
  std::shared_ptr<FakeTokenStore> store_ = std::make_shared<FakeTokenStore>();
  std::optional<std::string> ghToken_;
  std::shared_ptr<GitHubAuth> auth_ = std::make_shared<GitHubAuth>(
      store_, [this](const std::stop_token&) { return ghToken_; }, clock_.clock());
  std::shared_ptr<CannedTransport> transport_ = std::make_shared<CannedTransport>();
  // What happens on the main thread while a sign-in sleeps.
  std::function<void()> duringSleep_ = [] {};
  std::optional<Model> model_{std::in_place,
                              Model::Environment{.auth = auth_,
                                                 .transport = transport_,
                                                 .defaults = &defaults_,
                                                 .mainQueue = &main_,
                                                 .worker = &worker_,
                                                 .signInWorker = &signInWorker_,
                                                 .clock = clock_.clock(),
                                                 .sleep = [this](Seconds duration, const auto&) {
                                                   clock_.advance(duration);
                                                   duringSleep_();
                                                 }}};
};

TEST_F(GitHubAccountModelTest, TellsWhoIsSignedIn) {
  EXPECT_EQ(status(), checking);
  refresh();
  EXPECT_EQ(status(), signedOut);
  EXPECT_TRUE(transport_->requests.empty());

  store_->signIn = GitHubSignIn{.login = "ann", .token = "t1"};
  auth_->reread();
  refresh();
  EXPECT_EQ(status(), signedIn("ann", Source::tessivane));
  EXPECT_TRUE(transport_->requests.empty());

  store_->signIn.reset();
  ghToken_ = "t2";
  transport_->answers = {viewer("bob")};
  refresh(true);
  EXPECT_EQ(status(), signedIn("bob", Source::ghCLI));
  refresh();
  EXPECT_EQ(transport_->requests.size(), 1U);
}

TEST_F(GitHubAccountModelTest, AReloadHasGitHubConfirmTheToken) {
  store_->signIn = GitHubSignIn{.login = "ann", .token = "t1"};
  refresh();
  // Renamed meanwhile; the new name stays, also when the news of it comes back from the auth.
  transport_->answers = {viewer("anna"), {.status = 500}, {.status = 401}};
  model_->refresh(true);
  EXPECT_EQ(status(), checking);
  run();
  EXPECT_EQ(status(), signedIn("anna", Source::tessivane));
  // A fault of GitHub's says nothing of the token.
  refresh(true);
  EXPECT_EQ(status(), signedIn("anna", Source::tessivane));
  refresh(true);
  EXPECT_EQ(status(), invalid(Source::tessivane));
  // A token that was refused is not shown to GitHub again.
  refresh(true);
  EXPECT_EQ(status(), invalid(Source::tessivane));
  EXPECT_EQ(transport_->requests.size(), 3U);
}

TEST_F(GitHubAccountModelTest, FollowsWhatOthersFindOut) {
  ghToken_ = "t1";
  refresh();
  EXPECT_EQ(status(), signedIn(std::nullopt, Source::ghCLI));
  auth_->remember("ann", "t1");
  run();
  EXPECT_EQ(status(), signedIn("ann", Source::ghCLI));
  auth_->markInvalid("t1");
  run();
  EXPECT_EQ(status(), invalid(Source::ghCLI));
}

TEST_F(GitHubAccountModelTest, SignsInAndOut) {
  std::vector<std::vector<std::string>> rows;
  const auto subscription = model_->signIn().subscribe(
      [&](const auto& state) { rows.push_back(Model::signInWords(state)); });
  duringSleep_ = [this] { main_.runPending(); };
  refresh();
  signInWith({code, refusal("authorization_pending"), token, viewer("ann")});
  EXPECT_EQ(rows,
            (std::vector<std::vector<std::string>>{
                {"Asking GitHub for a sign-in code…"},
                {"Enter this code on GitHub to sign in:",
                 "AB-12",
                 "Waiting for you to approve at https://github.com/login/device"},
                {}}));
  EXPECT_EQ(store_->signIn, (GitHubSignIn{.login = "ann", .token = "t1"}));
  EXPECT_EQ(status(), signedIn("ann", Source::tessivane));

  model_->signOut();
  run();
  EXPECT_EQ(store_->signIn, std::nullopt);
  EXPECT_EQ(status(), signedOut);
}

TEST_F(GitHubAccountModelTest, TellsWhyASignInFailedAndNoMore) {
  // GitHub says the secret things wherever it can.
  const std::string secrets = code.body + token.body;
  struct Case {
    std::deque<HTTPResponse> answers;
    std::string sentence;
  };
  const Case cases[] = {
      {{}, "Couldn't reach GitHub. Try again."},
      {{{.status = 404, .body = secrets}}, "GitHub didn't accept the client ID (404)."},
      {{{.status = 429}}, "GitHub didn't accept the client ID (403)."},
      {{answer(secrets)}, "GitHub didn't accept the client ID (malformed)."},
      {{code, refusal("access_denied")}, "Sign-in was declined on GitHub."},
      {{code, refusal("expired_token")}, "The code expired. Try again."},
      {{code}, "The code expired. Try again."},
      {{code, {.status = 401, .body = secrets}}, "GitHub sign-in failed (401)."},
      {{code, answer(secrets)}, "GitHub sign-in failed (malformed)."},
      {{code, refusal(R"( two\nlines )")}, "GitHub sign-in failed (two lines)."},
      {{code, token, {.status = 500, .body = secrets}},
       "Signed in, but couldn't read the account. Try again."},
  };
  testing::internal::CaptureStdout();
  testing::internal::CaptureStderr();
  for (const Case& test : cases) {
    signInWith(test.answers);
    EXPECT_EQ(signIn(), failed(test.sentence));
    EXPECT_EQ(store_->signIn, std::nullopt);
  }
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  store_->isWritable = false;
  signInWith({code, token, viewer("ann")});
  EXPECT_EQ(signIn(), failed("Couldn't save the sign-in to the Keychain."));
  EXPECT_EQ(status(), signedOut);
  model_->cancelSignIn();
  EXPECT_EQ(signIn(), idle);
}

TEST_F(GitHubAccountModelTest, AsksNobodyWithoutAClientIDOrOnceCancelled) {
  EXPECT_TRUE(model_->canSignIn());
  model_->startSignIn();
  model_->cancelSignIn();
  run();
  EXPECT_EQ(signIn(), idle);
  defaults_.remove("github.clientID");
  EXPECT_FALSE(model_->canSignIn());
  model_->startSignIn();
  run();
  EXPECT_EQ(signIn(), idle);
  EXPECT_TRUE(transport_->requests.empty());
}

TEST_F(GitHubAccountModelTest, WhatIsCancelledReportsNothing) {
  struct Case {
    const char* name;
    std::function<void()> act;
    std::vector<Model::SignIn> toldLater;
  };
  const Case cases[] = {
      {"cancel", [this] { model_->cancelSignIn(); }, {}},
      {"sign out", [this] { model_->signOut(); }, {}},
      {"start another",
       [this] {
         transport_->answers.clear();
         model_->startSignIn();
       },
       {failed("Couldn't reach GitHub. Try again.")}},
  };
  std::vector<Model::SignIn> told;
  const auto subscription =
      model_->signIn().subscribe([&](const auto& state) { told.push_back(state); });
  for (const Case& test : cases) {
    // While the code is awaited, the token (twice), and the login.
    for (std::size_t request = 1; request <= 4; ++request) {
      transport_->requests.clear();
      transport_->duringRequest = [&] {
        main_.runPending();
        if (transport_->requests.size() == request) {
          test.act();
          told.clear();
        }
      };
      signInWith({code, refusal("authorization_pending"), token, viewer("ann")});
      EXPECT_EQ(told, test.toldLater) << test.name << " during request " << request;
      EXPECT_EQ(store_->signIn, std::nullopt) << test.name << " during request " << request;
    }
  }
}

TEST_F(GitHubAccountModelTest, MayGoWhileWorkIsUnderWay) {
  duringSleep_ = [this] {
    main_.runPending();
    model_.reset();
  };
  signInWith({code, token, viewer("ann")});
  EXPECT_FALSE(model_);
  EXPECT_EQ(store_->signIn, std::nullopt);
}

TEST_F(GitHubAccountModelTest, MayGoBeforeAResultIsShown) {
  model_->refresh(true);
  worker_.runPending();
  auth_->remember("ann", "t1");
  model_.reset();
  run();
  EXPECT_EQ(worker_.pendingCount(), 0U);
}

}  // namespace
}  // namespace tessivane
