#pragma once

// A pull request as GitHub tells of it. A plain value, safe on every thread.

#include <cstdint>
#include <optional>
#include <string>

#include "support/Date.h"

namespace tessivane {

struct GitHubPR {
  std::string repo = {};  ///< "owner/name" as GitHub writes it
  std::int64_t number = 0;
  std::string title = {};  ///< one line of at most 200 characters, never empty
  std::string url = {};
  Date createdAt = distantPast;
  std::optional<Date> mergedAt = {};
  Date updatedAt = distantPast;
  std::optional<std::string> headRefName = {};
  std::optional<std::string> repoURL = {};
  std::optional<std::string> sshURL = {};

  friend bool operator==(const GitHubPR&, const GitHubPR&) = default;
};

}  // namespace tessivane
