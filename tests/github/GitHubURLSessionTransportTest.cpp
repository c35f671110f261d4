// A search over the live transport, against a server on the loopback interface. Whole sign-ins over
// it are in GitHubSignInTest.cpp.

#include "github/GitHubURLSessionTransport.h"

#include <array>
#include <fstream>
#include <string>

#include <gtest/gtest.h>

#include "github/GitHubJSON.h"
#include "github/GitHubSearch.h"
#include "helpers/LoopbackServer.h"
#include "helpers/RedirectedTransport.h"

namespace tessivane {
namespace {

// The most memory that this process has had since the last look, in bytes.
std::size_t peakMemory() {
  std::ifstream status("/proc/self/status");
  std::string word;
  std::size_t kilobytes = 0;
  while (status >> word) {
    if (word == "VmHWM:")
      status >> kilobytes;
  }
  std::ofstream("/proc/self/clear_refs") << 5;
  return kilobytes << 10;
}

TEST(GitHubURLSessionTransportTest, NoAnswerTakesUpMuchMemory) {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
  GTEST_SKIP() << "a sanitizer needs memory of its own";
#endif
  // As long as one that is read may be; the second of each triple is repeated.
  const std::string node =
      R"({"number":1,"createdAt":"2026-10-01T08:00:00Z","updatedAt":"2026-10-03T08:00:00Z",)"
      R"("repository":{"nameWithOwner":"o/r"},"url":")" +
      std::string(longestJSON / 100, 'x') + "\"},";
  const std::array<std::string, 3> parts[] = {
      {R"({"data":{"a":")", "\\n", "\"}}"},
      {R"({"data":{"a":[)", '"' + std::string(longestJSON / 19'900, 'x') + "\",", "0]}}"},
      {R"({"data":{"a":[)", R"({"a":{}},)", "0]}}"},
      {R"({"data":{"search":{"pageInfo":{"hasNextPage":true,"endCursor":"c"},"nodes":[)",
       node,
       "0]}}}"},
  };
  for (const auto& [head, unit, tail] : parts) {
    SCOPED_TRACE(unit.substr(0, 20));
    std::string body = head;
    body.reserve(longestJSON);
    while (body.size() + unit.size() + tail.size() <= longestJSON)
      body += unit;
    body += tail;
    const LoopbackServer server(
        [&](const HTTPRequest&) { return LoopbackServer::Answer{.body = body}; });
    RedirectedTransport transport(server.origin());
    peakMemory();
    const auto before = peakMemory();
    GitHubSearch::fetchAll("octo", distantPast, "gho_1", transport, distantPast);
    EXPECT_LT(peakMemory(), before + (std::size_t{20} << 20));
  }
}

}  // namespace
}  // namespace tessivane
