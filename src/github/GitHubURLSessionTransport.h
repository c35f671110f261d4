#pragma once

// The live transport: over the network, see HTTPClient for its limits. Safe on every thread.

#include "github/GitHubTransport.h"

namespace tessivane {

class GitHubURLSessionTransport final : public GitHubTransport {
 public:
  std::optional<HTTPResponse> send(const HTTPRequest& request,
                                   const std::stop_token& stop) override;
};

}  // namespace tessivane
