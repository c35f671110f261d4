#pragma once

// Answers requests in order from a list, and then none any more. For one thread.

#include <cstddef>
#include <optional>
#include <stop_token>
#include <utility>
#include <vector>

#include "github/GitHubTransport.h"

namespace tessivane {

class CannedTransport final : public GitHubTransport {
 public:
  explicit CannedTransport(std::vector<HTTPResponse> responses)
      : responses_(std::move(responses)) {}

  std::optional<HTTPResponse> send(const HTTPRequest& request, const std::stop_token&) override {
    requests_.push_back(request);
    if (requests_.size() > responses_.size())
      return std::nullopt;
    return responses_[requests_.size() - 1];
  }

  const std::vector<HTTPRequest>& requests() const { return requests_; }

 private:
  const std::vector<HTTPResponse> responses_;
  std::vector<HTTPRequest> requests_;
};

}  // namespace tessivane
