#pragma once

// Asks GitHub for the pull requests of a person, page by page. Without state, safe on every thread;
// `fetchAll` blocks.

#include <cstddef>
#include <optional>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

#include <nlohmann/json_fwd.hpp>

#include "github/GitHubError.h"
#include "github/GitHubPR.h"
#include "github/GitHubTransport.h"

namespace tessivane {

class GitHubSearch final {
 public:
  GitHubSearch() = delete;

  /// Of 100 pull requests each; what lies behind the last is not asked for.
  static constexpr std::size_t maxPages = 10;

  struct Page {
    std::vector<GitHubPR> prs = {};
    std::optional<std::string> nextCursor = {};
  };

  /// The pull requests by `login` that were updated at or after `since`, in GitHub's order. An
  /// error on any page is the result; the pages before it are dropped.
  static GitHubResult<std::vector<GitHubPR>> fetchAll(std::string_view login,
                                                      Date since,
                                                      std::string_view token,
                                                      GitHubTransport& transport,
                                                      Date now,
                                                      const std::stop_token& stop = {});

  /// A page out of the "data" of an answer. Nodes that are no usable pull request are skipped, as
  /// are all beyond the 100 that a page has; nothing when there is no "search" object.
  static std::optional<Page> parsePage(const nlohmann::json& data);

  static std::optional<GitHubPR> parseNode(const nlohmann::json& node);

  /// From where the next poll asks: two minutes before the latest update, and never before
  /// `previous`. Nothing when there are none.
  static std::optional<Date> nextCursor(const std::vector<GitHubPR>& prs,
                                        std::optional<Date> previous);
};

}  // namespace tessivane
