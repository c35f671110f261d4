#pragma once

// GitHub and a sign-in as a test plays them: answers from a list, by hand. For one thread.

#include <deque>
#include <functional>
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

/// In memory. `duringLoad` is called in the middle of every load, with what is about to be given
/// already read.
class FakeTokenStore final : public GitHubTokenStore {
 public:
  explicit FakeTokenStore(std::optional<GitHubSignIn> stored = {}) : signIn(std::move(stored)) {}

  std::optional<GitHubSignIn> load() override {
    ++loads;
    auto read = signIn;
    if (duringLoad)
      duringLoad();
    return read;
  }

  bool save(const GitHubSignIn& saved) override {
    if (!isWritable)
      return false;
    signIn = saved;
    return true;
  }

  void remove() override { signIn.reset(); }

  std::optional<GitHubSignIn> signIn;
  bool isWritable = true;
  int loads = 0;
  std::function<void()> duringLoad;
};

/// The answer to a search with these pull requests on its one page.
inline HTTPResponse searchPage(const nlohmann::json& nodes) {
  return {.status = 200, .body = nlohmann::json{{"data", {{"search", {{"nodes", nodes}}}}}}.dump()};
}

}  // namespace tessivane
