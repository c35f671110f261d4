#include "github/GitHubDeviceFlow.h"

#include <gtest/gtest.h>

#include "CannedTransport.h"
#include "helpers/ManualClock.h"

namespace tessivane {
namespace {

using Flow = GitHubDeviceFlow;
using Result = GitHubDeviceFlowResult;
using Kind = Result::Kind;

GitHubDeviceCode sampleCode(Seconds expiresIn = Seconds(900), Seconds interval = Seconds(5)) {
  return {.deviceCode = "d/1",
          .userCode = "ABCD-1234",
          .verificationURI = "https://github.com/login/device",
          .expiresIn = expiresIn,
          .interval = interval};
}

TEST(GitHubDeviceFlow, AsksByForms) {
  const HTTPRequest request = Flow::codeRequest("Iv1 é&=+~");
  EXPECT_EQ(request.method, "POST");
  EXPECT_EQ(request.url, "https://github.com/login/device/code");
  EXPECT_EQ(request.body, "client_id=Iv1%20%C3%A9%26%3D%2B~&scope=repo%20read%3Auser");
  EXPECT_EQ(request.timeout, Seconds(60));
  EXPECT_EQ(request.headers,
            (std::vector<HTTPHeader>{{"Accept", "application/json"},
                                     {"Content-Type", "application/x-www-form-urlencoded"},
                                     {"User-Agent", "Tessivane-macOS"}}));
}

TEST(GitHubDeviceFlow, ReadsCodes) {
  const std::string texts = R"("device_code":"d/1","user_code":"ABCD-1234")";
  const std::string uri = R"(,"verification_uri":"https://github.com/login/device")";
  struct Case {
    std::string body;
    std::optional<GitHubDeviceCode> code;
  };
  const Case cases[] = {
      {"{" + texts + uri + R"(,"expires_in":899,"interval":6.5})",
       sampleCode(Seconds(899), Seconds(6.5))},
      {"{" + texts + uri + "}", sampleCode()},
      {"{" + texts + uri + R"(,"expires_in":"899","interval":null})", sampleCode()},
      {"{" + texts + uri + R"(,"interval":-7})", sampleCode(Seconds(900), Seconds(1))},
      {"{" + texts + "}", std::nullopt},
      {"{" + texts + R"(,"verification_uri":"login/device"})", std::nullopt},
      {"{" + texts + R"(,"verification_uri":"https:///login"})", std::nullopt},
      {"{" + texts + R"(,"verification_uri":"https://git hub.com/"})", std::nullopt},
      {"{" + texts + R"(,"verification_uri":"file:///etc/passwd"})", std::nullopt},
      {R"({"device_code":"","user_code":"A")" + uri + "}", std::nullopt},
      {"[{" + texts + uri + "}]", std::nullopt},
      {"", std::nullopt},
  };
  for (const Case& test : cases)
    EXPECT_EQ(Flow::parseCode(test.body), test.code) << test.body;
}

TEST(GitHubDeviceFlow, ReadsAnswers) {
  const Result good{.kind = Kind::token, .token = "gho_1"};
  const Result malformed{.kind = Kind::failed, .reason = "malformed"};
  struct Case {
    std::string body;
    Flow::Step step;
  };
  const Case cases[] = {
      {R"({"access_token":"gho_1","token_type":"bearer"})", good},
      {R"({"access_token":"gho_1","error":"access_denied"})", good},
      {R"({"error":"authorization_pending","interval":30})", Seconds(7)},
      {R"({"access_token":"","error":"authorization_pending"})", Seconds(7)},
      {R"({"error":"slow_down","interval":30})", Seconds(30)},
      {R"({"error":"slow_down","interval":0})", Seconds(1)},
      {R"({"error":"slow_down"})", Seconds(12)},
      {R"({"error":"access_denied"})", Result{.kind = Kind::denied}},
      {R"({"error":"expired_token"})", Result{.kind = Kind::expired}},
      {R"({"error":"bad_code"})", Result{.kind = Kind::failed, .reason = "bad_code"}},
      // It would put a header of its own into every request.
      {R"({"access_token":"gho_1\r\nX: y"})", malformed},
      {R"({"error":7})", malformed},
      {"access_token=gho_1", malformed},
  };
  for (const Case& test : cases)
    EXPECT_EQ(Flow::step(test.body, Seconds(7)), test.step) << test.body;
}

class GitHubDeviceFlowPollTest : public testing::Test {
 protected:
  // Polls with a sleep that only moves the clock, and keeps how long each was.
  Result poll(CannedTransport& transport, const GitHubDeviceCode& code = sampleCode()) {
    sleeps_.clear();
    const auto sleep = [this](Seconds duration, const std::stop_token&) {
      sleeps_.push_back(duration.count());
      clock_.advance(duration);
      if (sleeps_.size() == stopAt_)
        stop_.request_stop();
    };
    return Flow::poll(code, "id", transport, sleep, clock_.clock(), stop_.get_token());
  }

  static HTTPResponse answer(const std::string& body) { return {.status = 200, .body = body}; }

  ManualClock clock_;
  std::stop_source stop_;
  std::size_t stopAt_ = 0;
  std::vector<double> sleeps_;
};

TEST_F(GitHubDeviceFlowPollTest, GoesOnUntilThereIsAToken) {
  CannedTransport transport({answer(R"({"error":"authorization_pending"})"),
                             answer(R"({"error":"slow_down"})"),
                             answer(R"({"error":"slow_down"})"),
                             {.status = 403},
                             {.status = 429},
                             answer(R"({"error":"slow_down","interval":2})"),
                             answer(R"({"access_token":"gho_1"})")});
  EXPECT_EQ(poll(transport), (Result{.kind = Kind::token, .token = "gho_1"}));
  EXPECT_EQ(sleeps_, (std::vector<double>{5, 5, 10, 15, 20, 25, 2}));
  for (const HTTPRequest& request : transport.requests) {
    EXPECT_EQ(request.url, "https://github.com/login/oauth/access_token");
    EXPECT_EQ(request.body,
              "client_id=id&device_code=d%2F1&"
              "grant_type=urn%3Aietf%3Aparams%3Aoauth%3Agrant-type%3Adevice_code");
  }
}

TEST_F(GitHubDeviceFlowPollTest, EndsByAnyOtherStatus) {
  for (const int status : {302, 401, 500}) {
    CannedTransport transport({{.status = status, .body = R"({"access_token":"gho_1"})"}});
    EXPECT_EQ(poll(transport), (Result{.kind = Kind::failed, .reason = std::to_string(status)}));
  }
}

TEST_F(GitHubDeviceFlowPollTest, EndsWhenTheCodeHasExpired) {
  // Nobody answers. The last request that counts comes before the end, not at it.
  CannedTransport transport;
  EXPECT_EQ(poll(transport, sampleCode(Seconds(20))), (Result{.kind = Kind::expired}));
  EXPECT_EQ(sleeps_, (std::vector<double>{5, 5, 5, 5}));
  EXPECT_EQ(transport.requests.size(), 3U);
  EXPECT_EQ(poll(transport, sampleCode(Seconds(-1))), (Result{.kind = Kind::expired}));
  EXPECT_EQ(transport.requests.size(), 3U);
}

TEST_F(GitHubDeviceFlowPollTest, EndsOnRequest) {
  CannedTransport transport;
  stopAt_ = 2;
  EXPECT_EQ(poll(transport), (Result{.kind = Kind::cancelled}));
  EXPECT_EQ(transport.requests.size(), 1U);
}

}  // namespace
}  // namespace tessivane
