// Whole sign-ins, from the button to the token store, over the live transport and on real queues.
// GitHub is a server of ours.

#include <chrono>
#include <deque>
#include <memory>
#include <optional>
#include <string>
#include <utility>

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

const Answer codeAnswer{.body = R"({"device_code":"3584d83530557fdd","user_code":"WDJB-MJHT",)"
                                R"("verification_uri":"https://github.com/login/device"})"};
const Answer tokenAnswer{.body = R"({"access_token":"gho_0123456789abcdef","scope":"repo"})"};

// One run of the program, as far as it is about the account.
class Program {
 public:
  /// With GitHub's answers in order. The person does not wait for one that is silent.
  explicit Program(std::deque<Answer> answers) : answers_(std::move(answers)) {
    defaults_.set("github.clientID", "Iv1.0123456789abcdef");
  }
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program() {
    model_.reset();
    endSignIns();
    worker_.reset();
  }

  Model& model() { return *model_; }
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
  Answer nextAnswer() {
    const MutexLock lock(mutex_);
    if (answers_.empty())
      return {.status = 500};
    Answer next = answers_.front();
    answers_.pop_front();
    if (next.silent) {
      main_.async([this] {
        model_->cancelSignIn();
        main_.stop();
      });
    }
    return next;
  }

  Mutex mutex_;
  std::deque<Answer> answers_ GUARDED_BY(mutex_);
  AsioMainQueue main_;
  std::optional<SerialQueue> worker_{std::in_place, "worker"};
  std::optional<SerialQueue> signInWorker_{std::in_place, "sign-in"};
  MemoryUserDefaults defaults_{main_};
  const std::shared_ptr<LockedTokenStore> store_ = std::make_shared<LockedTokenStore>();
  LoopbackServer server_{[this](const HTTPRequest&) { return nextAnswer(); }};
  std::optional<Model> model_{
      std::in_place,
      Model::Environment{.auth = std::make_shared<GitHubAuth>(
                             store_, [](const auto&) { return std::nullopt; }, systemNow),
                         .transport = std::make_shared<RedirectedTransport>(server_.origin()),
                         .defaults = &defaults_,
                         .mainQueue = &main_,
                         .worker = &*worker_,
                         .signInWorker = &*signInWorker_,
                         .clock = systemNow,
                         // Impatient.
                         .sleep = [](Seconds, const auto&) {}}};
};

TEST(GitHubSignIn, EndsWithATokenThatNobodyHasSeen) {
  Program program({codeAnswer,
                   {.body = R"({"error":"authorization_pending"})"},
                   {.status = 429},
                   {.body = tokenAnswer.body, .cutAfter = 100},
                   tokenAnswer,
                   {.body = R"({"data":{"viewer":{"login":"ann"}},"errors":)"
                            R"([{"type":"NOTICE","message":"gho_0123456789abcdef"}]})"}});
  const std::string said = program.signIn();
  EXPECT_THAT(said, HasSubstr("WDJB-MJHT"));
  EXPECT_THAT(said, HasSubstr("GraphQL partial errors (NOTICE)"));
  EXPECT_THAT(said, Not(HasSubstr(token)));
  EXPECT_THAT(said, Not(HasSubstr(deviceCode)));
  EXPECT_EQ(program.stored(), (GitHubSignIn{.login = "ann", .token = token}));
  EXPECT_EQ(program.model().status().value(),
            Model::Status(Model::SignedIn{"ann", GitHubCredentialSource::tessivane}));

  const auto requests = program.server().requests();
  ASSERT_EQ(requests.size(), 6U);
  EXPECT_EQ(requests.front().body, "client_id=Iv1.0123456789abcdef&scope=repo%20read%3Auser");
  EXPECT_THAT(*requests[4].body, HasSubstr(deviceCode));
  EXPECT_EQ(requests.back().url, "/graphql");
  EXPECT_THAT(requests.back().headers,
              testing::Contains(HTTPHeader{"Authorization", std::string("bearer ") + token}));
  for (const HTTPRequest& request : requests)
    EXPECT_THAT(request.url, Not(HasSubstr(deviceCode)));
}

TEST(GitHubSignIn, EndsAtOnceWhenItIsCancelled) {
  const auto start = std::chrono::steady_clock::now();
  Program program({codeAnswer, {.silent = true}});
  program.signIn();
  EXPECT_EQ(program.model().signIn().value(), Model::SignIn(Model::Idle{}));
  // The request itself would wait for a minute.
  program.endSignIns();
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
  EXPECT_EQ(program.stored(), std::nullopt);
}

}  // namespace
}  // namespace tessivane
