#pragma once

// The live transport for code that asks https://api.github.com or https://github.com: scheme, host
// and port of every request become those of a server of the test.

#include <optional>
#include <stop_token>
#include <string>
#include <utility>
#include <vector>

#include "github/GitHubURLSessionTransport.h"
#include "support/Mutex.h"

namespace tessivane {

class RedirectedTransport final : public GitHubTransport {
 public:
  /// Such as `LoopbackServer::origin()`.
  explicit RedirectedTransport(std::string origin) : origin_(std::move(origin)) {}

  std::optional<HTTPResponse> send(const HTTPRequest& request,
                                   const std::stop_token& stop) override {
    {
      const MutexLock lock(mutex_);
      urls_.push_back(request.url);
    }
    const auto host = request.url.find("://") + 3;
    HTTPRequest redirected = request;
    redirected.url = origin_ + request.url.substr(request.url.find('/', host));
    return live_.send(redirected, stop);
  }

  /// Where the requests were meant to go, in order.
  std::vector<std::string> urls() const {
    const MutexLock lock(mutex_);
    return urls_;
  }

 private:
  const std::string origin_;
  GitHubURLSessionTransport live_;
  mutable Mutex mutex_;
  std::vector<std::string> urls_ GUARDED_BY(mutex_);
};

}  // namespace tessivane
