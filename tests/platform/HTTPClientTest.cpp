// Against a server on the loopback interface.

#include "platform/linux/HTTPClient.h"

#include <array>
#include <chrono>
#include <cstdlib>
#include <limits>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "helpers/Event.h"
#include "helpers/LoopbackServer.h"
#include "helpers/TempHome.h"

namespace tessivane {
namespace {

using namespace std::chrono_literals;
using testing::Contains;
using testing::IsEmpty;
using testing::SizeIs;
using Answer = LoopbackServer::Answer;
using Kind = LoopbackServer::Kind;

// What would take this long was ended by nothing but its deadline.
constexpr Seconds longWait = 60s;

std::optional<HTTPResponse> get(const std::string& url, Seconds timeout = longWait) {
  return HTTPClient::send({.url = url, .timeout = timeout}, {});
}

class Stopwatch {
 public:
  Seconds elapsed() const { return std::chrono::steady_clock::now() - begin_; }

 private:
  std::chrono::steady_clock::time_point begin_ = std::chrono::steady_clock::now();
};

TEST(HTTPClientTest, SendsWhatItIsGivenAndNothingOfItsOwnInvention) {
  const LoopbackServer server;
  const std::string body("{\"q\": \"\0\xff\"}", 11);
  ASSERT_TRUE(HTTPClient::send({.method = "POST",
                                .url = server.url("/graphql?a=b"),
                                .headers = {{.name = "Authorization", .value = "bearer abc"},
                                            {.name = "User-Agent", .value = "Tester"},
                                            {.name = "X-Empty", .value = ""}},
                                .body = body},
                               {}));
  ASSERT_TRUE(get(server.url("/plain")));
  const std::vector<HTTPRequest> requests = server.requests();
  ASSERT_THAT(requests, SizeIs(2));
  EXPECT_EQ(requests[0].method, "POST");
  EXPECT_EQ(requests[0].url, "/graphql?a=b");
  EXPECT_EQ(requests[0].body, body);
  EXPECT_THAT(requests[0].headers, Contains(HTTPHeader{"Authorization", "bearer abc"}));
  EXPECT_THAT(requests[0].headers, Contains(HTTPHeader{"User-Agent", "Tester"}));
  EXPECT_THAT(requests[0].headers, Contains(HTTPHeader{"X-Empty", ""}));
  EXPECT_EQ(requests[1].method, "GET");
  EXPECT_EQ(requests[1].body, std::nullopt);
  for (const HTTPHeader& header : requests[1].headers)
    EXPECT_THAT((std::array{"Host", "Accept"}), Contains(header.name));
}

TEST(HTTPClientTest, GivesEveryResponseAsItIs) {
  const Answer answers[] = {
      {.body = std::string("\xff\xfe\0\x80", 4)},
      {.status = 204},
      {.status = 403, .headers = {{"Retry-After", "30"}, {"X-RateLimit-Remaining", "0"}}},
      {.status = 503, .body = "busy"},
      {.body = std::string(HTTPClient::maxBody, ' ')},
      {.headers = {{"X-Long", std::string(60'000, 'x')}}},
  };
  for (const Answer& answer : answers) {
    SCOPED_TRACE(std::to_string(answer.status) + " " + answer.body.substr(0, 20));
    const LoopbackServer server([&](const HTTPRequest&) { return answer; });
    const auto response = get(server.url());
    ASSERT_TRUE(response);
    EXPECT_EQ(response->status, answer.status);
    EXPECT_TRUE(response->body == answer.body);
    for (const HTTPHeader& header : answer.headers)
      EXPECT_EQ(response->header(header.name), header.value);
    EXPECT_EQ(server.connections(), 1U);
  }
}

TEST(HTTPClientTest, TellsTheFinalResponseFromWhatComesBeforeIt) {
  const LoopbackServer server([](const HTTPRequest&) {
    return Answer{.raw =
                      "HTTP/1.1 103 Early Hints\r\nX-Early: yes\r\n\r\n"
                      "HTTP/1.1 200 OK\r\nX-Late: yes\r\nx-late:  twice \r\n\r\nbody"};
  });
  const auto response = get(server.url());
  ASSERT_TRUE(response);
  EXPECT_EQ(response->status, 200);
  EXPECT_EQ(response->header("x-early"), std::nullopt);
  EXPECT_EQ(response->header("X-LATE"), "twice");
  EXPECT_EQ(response->body, "body");
}

TEST(HTTPClientTest, FollowsNoRedirect) {
  const LoopbackServer other;
  const LoopbackServer server([&](const HTTPRequest&) {
    return Answer{.status = 302, .headers = {{"Location", other.url("/taken")}}};
  });
  const auto response = get(server.url());
  ASSERT_TRUE(response);
  EXPECT_EQ(response->status, 302);
  EXPECT_EQ(response->header("location"), other.url("/taken"));
  EXPECT_EQ(other.connections(), 0U);
}

TEST(HTTPClientTest, GivesNothingForAResponseThatIsNoneOrTooLong) {
  constexpr std::size_t megabyte = 1 << 20;
  const std::pair<const char*, Answer> cases[] = {
      {"cut at once", {.cutAfter = 0}},
      {"cut behind the first line", {.raw = "HTTP/1.1 200 OK\r\n"}},
      {"cut within a header", {.raw = "HTTP/1.1 200 OK\r\nContent-Le"}},
      {"cut within the end of the head", {.raw = "HTTP/1.1 200 OK\r\nX-Long: a\r\n\r"}},
      {"cut behind a hint and a first line",
       {.raw = "HTTP/1.1 103 Early Hints\r\n\r\nHTTP/1.1 200 OK\r\n"}},
      {"cut within the body", {.body = std::string(1'000, 'x'), .cutAfter = 500}},
      {"no HTTP", {.raw = "220 mail.example.com ready\r\n\r\n"}},
      {"too long, and says so", {.body = std::string(40 * megabyte, ' ')}},
      {"one byte too long, and does not say so",
       {.raw = "HTTP/1.1 200 OK\r\n\r\n" + std::string(HTTPClient::maxBody + 1, ' ')}},
      {"one long header", {.headers = {{"X-Long", std::string(megabyte, 'x')}}}},
      {"many headers", {.headers = std::vector(14'000, HTTPHeader{"X-Many", "0123456789"})}},
  };
  for (const auto& [name, answer] : cases) {
    SCOPED_TRACE(name);
    const LoopbackServer server([&item = answer](const HTTPRequest&) { return item; });
    EXPECT_FALSE(get(server.url()));
    EXPECT_EQ(server.connections(), 1U);
  }
}

TEST(HTTPClientTest, GivesNothingWhereNobodyAnswers) {
  const LoopbackServer closed({}, Kind::closed);
  EXPECT_FALSE(get(closed.url()));
  for (const char* url : {"file:///etc/passwd", "ftp://127.0.0.1/", "", "http://127.0.0.1:99999/"})
    EXPECT_FALSE(get(url)) << url;
}

TEST(HTTPClientTest, TrustsWhomTheEnvironmentVouchesForWithinLimits) {
  struct Case {
    const char* name = "";
    TLSValidity validity = {};
    bool isVouchedFor = true;
    bool isTrusted = false;
  };
  const Case cases[] = {
      {.name = "in order", .isTrusted = true},
      {.name = "for another address", .validity = {.address = "127.0.0.2"}},
      {.name = "expired", .validity = {.end = -60s}},
      {.name = "not yet good", .validity = {.begin = 60s}},
      {.name = "signed by somebody else", .isVouchedFor = false},
  };
  const LoopbackServer stranger({}, Kind::https);
  EXPECT_FALSE(get(stranger.url()));
  EXPECT_THAT(stranger.requests(), IsEmpty());

  const TempHome home;
  // Nothing else runs that reads the environment. NOLINTNEXTLINE(concurrency-mt-unsafe)
  ::setenv("SSL_CERT_FILE", home.path("authorities.pem").c_str(), 1);
  for (const Case& item : cases) {
    SCOPED_TRACE(item.name);
    const LoopbackServer server({}, Kind::https, item.validity);
    home.write("authorities.pem",
               item.isVouchedFor ? server.certificate() : TLSServer().certificate());
    EXPECT_EQ(get(server.url()).has_value(), item.isTrusted);
    EXPECT_THAT(server.requests(), SizeIs(item.isTrusted ? 1 : 0));
  }
  ::unsetenv("SSL_CERT_FILE");  // NOLINT(concurrency-mt-unsafe)
}

TEST(HTTPClientTest, TellsAProxyNothingOfTheRequest) {
  const LoopbackServer proxy([](const HTTPRequest&) { return Answer{.status = 407}; });
  // NOLINTNEXTLINE(concurrency-mt-unsafe)
  ::setenv("https_proxy", proxy.origin().c_str(), 1);
  EXPECT_FALSE(HTTPClient::send({.method = "POST",
                                 .url = "https://example.invalid/path",
                                 .headers = {{.name = "Authorization", .value = "bearer abc"}},
                                 .body = "secret"},
                                {}));
  ::unsetenv("https_proxy");  // NOLINT(concurrency-mt-unsafe)
  ASSERT_THAT(proxy.requests(), SizeIs(1));
  const HTTPRequest request = proxy.requests().front();
  EXPECT_EQ(request.method, "CONNECT");
  EXPECT_EQ(request.url, "example.invalid:443");
  EXPECT_EQ(request.body, std::nullopt);
  for (const HTTPHeader& header : request.headers)
    EXPECT_NE(header.name, "Authorization");
}

TEST(HTTPClientTest, LetsNoHeaderBecomeTwo) {
  const LoopbackServer server;
  for (const char end : {'\r', '\n', '\0'}) {
    const std::string text = std::string("a") + end + "X-Own: b";
    EXPECT_FALSE(HTTPClient::send({.url = server.url(), .headers = {{"X-Name", text}}}, {}));
    EXPECT_FALSE(HTTPClient::send({.url = server.url(), .headers = {{text, "value"}}}, {}));
  }
  EXPECT_EQ(server.connections(), 0U);
}

TEST(HTTPClientTest, EndsByTheDeadlineWhateverStillTricklesIn) {
  const std::pair<const char*, Answer> cases[] = {
      {"silence", {.silent = true}},
      {"a byte now and then in the body", {.body = std::string(100'000, 'x'), .drip = 1ms}},
      {"a byte now and then in the head",
       {.raw = "HTTP/1.1 200 OK\r\nX-Long: " + std::string(100'000, 'x'), .drip = 1ms}},
  };
  for (const auto& [name, answer] : cases) {
    SCOPED_TRACE(name);
    const LoopbackServer server([&item = answer](const HTTPRequest&) { return item; });
    const Stopwatch watch;
    EXPECT_FALSE(get(server.url(), 100ms));
    EXPECT_GE(watch.elapsed(), 100ms);
    EXPECT_LT(watch.elapsed(), longWait / 4);
  }
  for (const double none : {0.0, -1.0, std::numeric_limits<double>::quiet_NaN()}) {
    const LoopbackServer server([](const HTTPRequest&) { return Answer{.silent = true}; });
    EXPECT_FALSE(get(server.url(), Seconds(none))) << none;
  }
}

TEST(HTTPClientTest, StopsAtOnceWhereverItWaits) {
  struct Case {
    const char* name;
    const char* scheme;
    Answer answer;
    bool isAsked;  ///< whether the server ever gets the request
    std::chrono::milliseconds later;
  };
  const Case cases[] = {
      {"no answer", "http", {.silent = true}, true, 0ms},
      // Until then libcurl looks up now and then of itself.
      {"no answer for long", "http", {.silent = true}, true, 300ms},
      {"a slow answer", "http", {.body = std::string(100'000, 'x'), .drip = 1ms}, true, 10ms},
      // The server takes the client's greeting for a request that has not yet come to its end.
      {"an unanswered handshake", "https", {}, false, 10ms},
  };
  for (const Case& item : cases) {
    SCOPED_TRACE(item.name);
    const LoopbackServer server([&](const HTTPRequest&) { return item.answer; });
    std::stop_source source;
    std::thread stopper([&] {
      while (item.isAsked ? server.requests().empty() : server.connections() == 0)
        std::this_thread::yield();
      std::this_thread::sleep_for(item.later);
      source.request_stop();
    });
    const Stopwatch watch;
    EXPECT_FALSE(
        HTTPClient::send({.url = item.scheme + server.url().substr(4)}, source.get_token()));
    EXPECT_LT(watch.elapsed(), longWait / 4);
    stopper.join();
  }
}

TEST(HTTPClientTest, DoesNotBeginOnceStopped) {
  const LoopbackServer server;
  std::stop_source source;
  source.request_stop();
  EXPECT_FALSE(HTTPClient::send({.url = server.url()}, source.get_token()));
  EXPECT_EQ(server.connections(), 0U);
}

TEST(HTTPClientTest, ServesSeveralThreadsAtOnce) {
  const LoopbackServer server(
      [](const HTTPRequest& request) { return Answer{.body = request.url}; });
  std::array<std::thread, 4> threads;
  std::array<int, 4> good{};
  for (std::size_t i = 0; i < threads.size(); ++i) {
    threads[i] = std::thread([&, i] {
      for (int j = 0; j < 20; ++j) {
        const std::string path = "/" + std::to_string(i) + "/" + std::to_string(j);
        const auto response = get(server.url(path));
        good[i] += response && response->body == path ? 1 : 0;
      }
    });
  }
  for (std::thread& thread : threads)
    thread.join();
  EXPECT_THAT(good, testing::Each(20));
}

TEST(HTTPRequestTest, LeavesNothingSecretBehind) {
  HTTPRequest request{.headers = {{.name = "Authorization", .value = "bearer abc"}},
                      .body = "client_secret=abc"};
  wipe(request);
  EXPECT_EQ(request.headers[0].value, std::string(10, '\0'));
  EXPECT_EQ(request.body, std::string(17, '\0'));
}

}  // namespace
}  // namespace tessivane
