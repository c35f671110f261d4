// Whole sign-ins, from the button to the token store, over the live transport and on real queues.
// GitHub is a server of ours.

#include <chrono>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "LockedTokenStore.h"
#include "github/GitHubAccountModel.h"
#include "helpers/LoopbackServer.h"
#include "helpers/RedirectedTransport.h"
#include "platform/MemoryUserDefaults.h"
#include "platform/SystemClock.h"
#include "platform/linux/AsioMainQueue.h"
#include "platform/linux/SerialQueue.h"

namespace tessivane {
namespace {

using testing::HasSubstr;
using testing::Not;
using Model = GitHubAccountModel;
using Answer = LoopbackServer::Answer;

// What nobody may see.
constexpr const char* token = "gho_0123456789abcdef";
constexpr const char* deviceCode = "3584d83530557fdd";

const Answer codeAnswer{
    .body =
        R"({"device_code":"3584d83530557fdd","user_code":"WDJB-MJHT",)"
        R"("verification_uri":"https://github.com/login/device","expires_in":900,"interval":1})"};
const Answer tokenAnswer{.body = R"({"access_token":"gho_0123456789abcdef","token_type":"bearer",)"
                                 R"("scope":"repo,read:user"})"};
const Answer viewerAnswer{.body = R"({"data":{"viewer":{"login":"ann"}}})"};

// GitHub's three endpoints, each with its answers in order; the last one holds on.
struct Endpoints {
  std::vector<Answer> code = {codeAnswer};
  std::vector<Answer> token = {tokenAnswer};
  std::vector<Answer> graphQL = {viewerAnswer};
};

// One run of the program, as far as it is about the account.
class Program {
 public:
  /// `duringToken` is what the person does while the token is awaited.
  explicit Program(Endpoints endpoints, std::function<void(Program&)> duringToken = {})
      : endpoints_(std::move(endpoints)), duringToken_(std::move(duringToken)) {}
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program() {
    model_.reset();
    endSignIns();
    worker_.reset();
  }

  Model& model() { return *model_; }
  AsioMainQueue& main() { return main_; }
  LoopbackServer& server() { return server_; }
  std::optional<GitHubSignIn> stored() { return store_->load(); }

  /// Waits for the request that is under way.
  void endSignIns() { signInWorker_.reset(); }

  /// Signs in, until that has failed, somebody is signed in, or the main queue was stopped. Returns
  /// all that was said: to the person, and on standard output and standard error.
  std::string signIn() {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    std::string words;
    const auto signIns = model_->signIn().subscribe([&](const Model::SignIn& state) {
      for (const std::string& line : Model::signInWords(state))
        words += line + "\n";
      if (std::holds_alternative<Model::Failed>(state))
        main_.stop();
    });
    const auto statuses = model_->status().subscribe([&](const Model::Status& status) {
      words += Model::statusWords(status) + "\n";
      main_.stop();
    });
    const TaskHandle limit = main_.after(Seconds(60), [this] {
      ADD_FAILURE() << "the sign-in does not end";
      main_.stop();
    });
    model_->startSignIn();
    main_.run();
    return words + testing::internal::GetCapturedStdout() + testing::internal::GetCapturedStderr();
  }

 private:
  Answer answer(const HTTPRequest& request) {
    const MutexLock lock(mutex_);
    std::vector<Answer>& answers = request.url == "/login/device/code" ? endpoints_.code
                                   : request.url == "/login/oauth/access_token"
                                       ? endpoints_.token
                                       : endpoints_.graphQL;
    if (&answers == &endpoints_.token && duringToken_)
      main_.async([this] { duringToken_(*this); });
    Answer next = answers.front();
    if (answers.size() > 1)
      answers.erase(answers.begin());
    return next;
  }

  static std::unique_ptr<UserDefaults> defaults(TaskQueue& queue) {
    auto defaults = std::make_unique<MemoryUserDefaults>(queue);
    defaults->set("github.clientID", "Iv1.0123456789abcdef");
    return defaults;
  }

  Mutex mutex_;
  Endpoints endpoints_ GUARDED_BY(mutex_);
  const std::function<void(Program&)> duringToken_;
  AsioMainQueue main_;
  std::optional<SerialQueue> worker_{std::in_place, "worker"};
  std::optional<SerialQueue> signInWorker_{std::in_place, "sign-in"};
  const std::unique_ptr<UserDefaults> defaults_ = defaults(main_);
  const std::shared_ptr<LockedTokenStore> store_ = std::make_shared<LockedTokenStore>();
  LoopbackServer server_{[this](const HTTPRequest& request) { return answer(request); }};
  std::optional<Model> model_{
      std::in_place,
      Model::Environment{.auth = std::make_shared<GitHubAuth>(
                             store_, [](const auto&) { return std::nullopt; }, systemNow),
                         .transport = std::make_shared<RedirectedTransport>(server_.origin()),
                         .defaults = defaults_.get(),
                         .mainQueue = &main_,
                         .worker = &*worker_,
                         .signInWorker = &*signInWorker_,
                         .clock = systemNow,
                         // Impatient.
                         .sleep = [](Seconds, const auto&) {}}};
};

TEST(GitHubSignIn, EndsWithATokenThatNobodyHasSeen) {
  Program program(
      {.token = {{.body = R"({"error":"authorization_pending"})"},
                 {.body = R"({"error":"slow_down","interval":10})"},
                 {.status = 429},
                 {.body = tokenAnswer.body, .cutAfter = 100},
                 tokenAnswer},
       .graphQL = {{.body = R"({"data":{"viewer":{"login":"ann"}},"errors":)"
                            R"([{"type":"NOTICE","message":"gho_0123456789abcdef"}]})"}}});
  const std::string said = program.signIn();
  EXPECT_THAT(said, HasSubstr("WDJB-MJHT"));
  EXPECT_THAT(said, HasSubstr("GraphQL partial errors (NOTICE)"));
  EXPECT_THAT(said, Not(HasSubstr(token)));
  EXPECT_THAT(said, Not(HasSubstr(deviceCode)));
  EXPECT_EQ(program.stored(), (GitHubSignIn{.login = "ann", .token = token}));
  EXPECT_EQ(program.model().status().value(),
            Model::Status(Model::SignedIn{"ann", GitHubCredentialSource::tessivane}));

  const auto requests = program.server().requests();
  ASSERT_EQ(requests.size(), 7U);
  EXPECT_EQ(requests.front().body, "client_id=Iv1.0123456789abcdef&scope=repo%20read%3Auser");
  EXPECT_THAT(*requests[5].body, HasSubstr(deviceCode));
  EXPECT_THAT(requests.back().headers,
              testing::Contains(HTTPHeader{"Authorization", std::string("bearer ") + token}));
  for (const HTTPRequest& request : requests)
    EXPECT_THAT(request.url, Not(HasSubstr(deviceCode)));
}

TEST(GitHubSignIn, FailsWithoutAWordOfTheToken) {
  struct Case {
    Endpoints endpoints;
    std::string sentence;
  };
  // GitHub says the secret things wherever it can.
  const Answer refusal{.status = 500, .body = tokenAnswer.body + codeAnswer.body};
  const Case cases[] = {
      {{.code = {refusal}}, "GitHub didn't accept the client ID (500)."},
      {{.code = {{.body = R"({"device_code":"3584d83530557fdd"})"}}},
       "GitHub didn't accept the client ID (malformed)."},
      {{.code = {{.cutAfter = 20}}}, "Couldn't reach GitHub. Try again."},
      {{.token = {refusal}}, "GitHub sign-in failed (500)."},
      {{.token = {{.body = R"(access_token=gho_0123456789abcdef)"}}},
       "GitHub sign-in failed (malformed)."},
      {{.graphQL = {refusal}}, "Signed in, but couldn't read the account. Try again."},
      {{.graphQL = {{.status = 401, .body = tokenAnswer.body}}},
       "Signed in, but couldn't read the account. Try again."},
  };
  for (const Case& test : cases) {
    Program program(test.endpoints);
    const std::string said = program.signIn();
    EXPECT_THAT(said, HasSubstr(test.sentence + "\n"));
    EXPECT_THAT(said, Not(HasSubstr(token)));
    EXPECT_THAT(said, Not(HasSubstr(deviceCode)));
    EXPECT_EQ(program.stored(), std::nullopt);
  }
}

TEST(GitHubSignIn, EndsAtOnceWhenItIsCancelled) {
  const auto start = std::chrono::steady_clock::now();
  Program program({.token = {{.silent = true}}}, [](Program& running) {
    running.model().cancelSignIn();
    running.main().stop();
  });
  program.signIn();
  EXPECT_EQ(program.model().signIn().value(), Model::SignIn(Model::Idle{}));
  // The request itself would wait for a minute.
  program.endSignIns();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
  EXPECT_EQ(program.stored(), std::nullopt);
}

}  // namespace
}  // namespace tessivane
