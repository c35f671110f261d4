#include "github/GitHubAccountModel.h"

#include <gtest/gtest.h>

#include "helpers/ManualClock.h"
#include "helpers/ManualQueue.h"
#include "helpers/ScriptedGitHub.h"
#include "platform/MemoryUserDefaults.h"

namespace tessivane {
namespace {

using Model = GitHubAccountModel;
using Source = GitHubCredentialSource;

// Answers each request by whatever the test has put there for its kind, else not at all.
class StagedTransport final : public GitHubTransport {
 public:
  std::optional<HTTPResponse> send(const HTTPRequest& request, const std::stop_token&) override {
    auto& answers = request.url == GitHubDeviceFlow::codeURL    ? codes
                    : request.url == GitHubDeviceFlow::tokenURL ? tokens
                                                                : logins;
    ++requests;
    duringRequest();
    if (answers.empty())
      return std::nullopt;
    auto answer = answers.front();
    answers.erase(answers.begin());
    return answer;
  }

  std::vector<HTTPResponse> codes;
  std::vector<HTTPResponse> tokens;
  std::vector<HTTPResponse> logins;
  int requests = 0;
  // What happens on the main thread while an answer is awaited.
  std::function<void()> duringRequest = [] {};
};

HTTPResponse answer(const std::string& body) {
  return {.status = 200, .body = body};
}

const HTTPResponse code = answer(
    R"({"device_code":"d","user_code":"AB-12","verification_uri":"https://github.com/login/device"})");
const HTTPResponse token = answer(R"({"access_token":"t1"})");
const HTTPResponse viewer = answer(R"({"data":{"viewer":{"login":"ann"}}})");

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
  static Model::Status signedIn(std::optional<std::string> login, Source source) {
    return Model::SignedIn{std::move(login), source};
  }
  static Model::Status invalid(Source source) { return Model::Invalid{source}; }
  static Model::SignIn failed(const std::string& sentence) { return Model::Failed{sentence}; }

  // A sign-in with the right code up to its end.
  void signInWith(std::vector<HTTPResponse> tokens, std::vector<HTTPResponse> logins) {
    transport_->codes = {code};
    transport_->tokens = std::move(tokens);
    transport_->logins = std::move(logins);
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
  std::shared_ptr<StagedTransport> transport_ = std::make_shared<StagedTransport>();
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
  EXPECT_EQ(status(), Model::Status(Model::Checking{}));
  refresh();
  EXPECT_EQ(status(), Model::Status(Model::SignedOut{}));
  EXPECT_EQ(transport_->requests, 0);

  store_->signIn = GitHubSignIn{.login = "ann", .token = "t1"};
  auth_->reread();
  refresh();
  EXPECT_EQ(status(), signedIn("ann", Source::tessivane));
  EXPECT_EQ(transport_->requests, 0);

  store_->signIn.reset();
  ghToken_ = "t2";
  transport_->logins = {answer(R"({"data":{"viewer":{"login":"bob"}}})")};
  auth_->reread();
  refresh();
  EXPECT_EQ(status(), signedIn("bob", Source::ghCLI));
  refresh();
  EXPECT_EQ(transport_->requests, 1);
}

TEST_F(GitHubAccountModelTest, GoesByWhatGitHubSaysOfTheToken) {
  struct Case {
    HTTPResponse answer;
    Model::Status status;
  };
  const Case cases[] = {
      {{.status = 401}, invalid(Source::ghCLI)},
      {{.status = 403}, signedIn(std::nullopt, Source::ghCLI)},
      {{.status = 500}, signedIn(std::nullopt, Source::ghCLI)},
      {answer("nonsense"), signedIn(std::nullopt, Source::ghCLI)},
      {viewer, signedIn("ann", Source::ghCLI)},
  };
  for (const Case& test : cases) {
    ghToken_ = "t" + std::to_string(transport_->requests);
    transport_->logins = {test.answer};
    refresh(true);
    EXPECT_EQ(status(), test.status) << test.answer.status;
  }
  ghToken_ = "unreachable";
  refresh(true);
  EXPECT_EQ(status(), signedIn(std::nullopt, Source::ghCLI));
}

TEST_F(GitHubAccountModelTest, AReloadHasGitHubConfirmTheToken) {
  store_->signIn = GitHubSignIn{.login = "ann", .token = "t1"};
  refresh();
  // Renamed meanwhile; the new name stays, also when the news of it comes back from the auth.
  transport_->logins = {answer(R"({"data":{"viewer":{"login":"anna"}}})"), {.status = 401}};
  model_->refresh(true);
  EXPECT_EQ(status(), Model::Status(Model::Checking{}));
  run();
  EXPECT_EQ(status(), signedIn("anna", Source::tessivane));
  refresh(true);
  EXPECT_EQ(status(), invalid(Source::tessivane));
  // A token that was refused is not shown to GitHub again.
  refresh(true);
  EXPECT_EQ(status(), invalid(Source::tessivane));
  EXPECT_EQ(transport_->requests, 2);
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
  signInWith({answer(R"({"error":"authorization_pending"})"), token}, {viewer});
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
  EXPECT_EQ(status(), Model::Status(Model::SignedOut{}));
}

TEST_F(GitHubAccountModelTest, TellsWhyThereIsNoCode) {
  struct Case {
    std::vector<HTTPResponse> codes;
    std::string sentence;
  };
  const Case cases[] = {
      {{}, "Couldn't reach GitHub. Try again."},
      {{{.status = 401}}, "GitHub didn't accept the client ID (401)."},
      {{{.status = 404}}, "GitHub didn't accept the client ID (404)."},
      {{{.status = 429}}, "GitHub didn't accept the client ID (403)."},
      {{answer("<html>")}, "GitHub didn't accept the client ID (malformed)."},
  };
  for (const Case& test : cases) {
    transport_->codes = test.codes;
    model_->startSignIn();
    run();
    EXPECT_EQ(signIn(), failed(test.sentence));
  }
  model_->cancelSignIn();
  EXPECT_EQ(signIn(), Model::SignIn(Model::Idle{}));
}

TEST_F(GitHubAccountModelTest, TellsWhyASignInFailed) {
  struct Case {
    std::vector<HTTPResponse> tokens;
    std::vector<HTTPResponse> logins;
    std::string sentence;
  };
  const Case cases[] = {
      {{token}, {{.status = 500}}, "Signed in, but couldn't read the account. Try again."},
      {{answer(R"({"error":"access_denied"})")}, {}, "Sign-in was declined on GitHub."},
      {{answer(R"({"error":"expired_token"})")}, {}, "The code expired. Try again."},
      {{}, {}, "The code expired. Try again."},
      {{{.status = 401}}, {}, "GitHub sign-in failed (401)."},
      {{answer(R"({"error":"incorrect_device_code"})")},
       {},
       "GitHub sign-in failed (incorrect_device_code)."},
      {{answer(R"({"error":" two\nlines "})")}, {}, "GitHub sign-in failed (two lines)."},
  };
  for (const Case& test : cases) {
    signInWith(test.tokens, test.logins);
    EXPECT_EQ(signIn(), failed(test.sentence));
    EXPECT_EQ(store_->signIn, std::nullopt);
  }
  store_->isWritable = false;
  signInWith({token}, {viewer});
  EXPECT_EQ(signIn(), failed("Couldn't save the sign-in to the Keychain."));
  EXPECT_EQ(status(), Model::Status(Model::SignedOut{}));
}

TEST_F(GitHubAccountModelTest, NeedsAClientID) {
  defaults_.remove("github.clientID");
  EXPECT_FALSE(model_->canSignIn());
  model_->startSignIn();
  run();
  EXPECT_EQ(signIn(), Model::SignIn(Model::Idle{}));
  EXPECT_EQ(transport_->requests, 0);
  defaults_.set("github.clientID", "id");
  EXPECT_TRUE(model_->canSignIn());
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
       [this] { model_->startSignIn(); },
       {failed("Couldn't reach GitHub. Try again.")}},
  };
  std::vector<Model::SignIn> told;
  const auto subscription =
      model_->signIn().subscribe([&](const auto& state) { told.push_back(state); });
  for (const Case& test : cases) {
    // While the code is awaited, the token (twice), and the login.
    for (int request = 1; request <= 4; ++request) {
      transport_->requests = 0;
      transport_->duringRequest = [&] {
        main_.runPending();
        if (transport_->requests == request) {
          test.act();
          told.clear();
        }
      };
      signInWith({answer(R"({"error":"authorization_pending"})"), token}, {viewer});
      EXPECT_EQ(told, test.toldLater) << test.name << " during request " << request;
      EXPECT_EQ(store_->signIn, std::nullopt) << test.name << " during request " << request;
    }
  }
}

TEST_F(GitHubAccountModelTest, ACancelledSignInThatIsNotYetBegunAsksNobody) {
  model_->startSignIn();
  model_->cancelSignIn();
  run();
  EXPECT_EQ(signIn(), Model::SignIn(Model::Idle{}));
  EXPECT_EQ(transport_->requests, 0);
}

TEST_F(GitHubAccountModelTest, MayGoWhileWorkIsUnderWay) {
  duringSleep_ = [this] {
    main_.runPending();
    model_.reset();
  };
  signInWith({token}, {viewer});
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
