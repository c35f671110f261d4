#pragma once

// Answers requests in order from a list, and then none any more. For one thread.

#include <deque>
#include <functional>
#include <optional>
#include <stop_token>
#include <utility>
#include <vector>

#include "github/GitHubTransport.h"

namespace tessivane {

class CannedTransport final : public GitHubTransport {
 public:
  explicit CannedTransport(std::deque<HTTPResponse> canned = {}) : answers(std::move(canned)) {}

  std::optional<HTTPResponse> send(const HTTPRequest& request, const std::stop_token&) override {
    requests.push_back(request);
    std::optional<HTTPResponse> answer;
    if (!answers.empty()) {
      answer = std::move(answers.front());
      answers.pop_front();
    }
    duringRequest();
    return answer;
  }

  std::deque<HTTPResponse> answers;
  std::vector<HTTPRequest> requests;
  /// What happens while an answer is awaited.
  std::function<void()> duringRequest = [] {};
};

}  // namespace tessivane
