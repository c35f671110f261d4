#pragma once

// GitHub and a sign-in as a test plays them: answers from a list, by hand. For one thread.

#include <deque>
#include <optional>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "github/GitHubTokenStore.h"
#include "github/GitHubTransport.h"

namespace tessivane {

/// Without a next answer there is no connection.
class ScriptedTransport final : public GitHubTransport {
 public:
  std::optional<HTTPResponse> send(const HTTPRequest& request,
                                   const std::stop_token& stop) override {
    requests.push_back(nlohmann::json::parse(request.body.value_or("{}")));
    if (answers.empty() || stop.stop_requested())
      return std::nullopt;
    HTTPResponse answer = std::move(answers.front());
    answers.pop_front();
    return answer;
  }

  std::deque<HTTPResponse> answers;
  std::vector<nlohmann::json> requests;
};

class MemoryTokenStore final : public GitHubTokenStore {
 public:
  std::optional<GitHubSignIn> load() override { return signIn; }
  bool save(const GitHubSignIn& newSignIn) override {
    signIn = newSignIn;
    return true;
  }
  void remove() override { signIn.reset(); }

  std::optional<GitHubSignIn> signIn = GitHubSignIn{.login = "me", .token = "secret"};
};

/// The answer to a search with these pull requests on its one page.
inline HTTPResponse searchPage(const nlohmann::json& nodes) {
  return {.status = 200, .body = nlohmann::json{{"data", {{"search", {{"nodes", nodes}}}}}}.dump()};
}

}  // namespace tessivane
