#pragma once

// Has GitHub asked for pull requests for as long as the settings say so. On the activity queue,
// owned by the activity store from start to stop.

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "backend/BackendActivityConfig.h"
#include "github/GitHubPR.h"
#include "github/GitHubPRSource.h"
#include "platform/TaskQueue.h"

namespace tessivane {

/// What GitHub told in one poll.
struct BackendPolled {
  std::vector<GitHubPR> prs = {};
  bool catchUp = false;                    ///< until the first poll of a run has succeeded
  std::optional<std::string> cursor = {};  ///< from which to ask once this is stored
};

class BackendGitHubPolls final : public std::enable_shared_from_this<BackendGitHubPolls> {
 public:
  /// Called within tasks of the queue.
  struct Owner {
    std::function<std::optional<std::string>()> loadCursor = {};
    /// Until the cursor is stored each poll asks for the same again, so the latest is enough.
    std::function<void(BackendPolled)> deliver = {};
  };

  /// Only in a shared pointer. Asks nothing before `update`. `queue` outlives it.
  BackendGitHubPolls(BackendActivityConfig config, TaskQueue& queue, Owner owner);

  /// Begins or ends asking, as the settings are now.
  void update();

  /// Begins from the stored cursor. A poll under way counts for nothing.
  void restart();

  /// Ends asking. A poll under way counts for nothing.
  void stop();

 private:
  void begin();

  const BackendActivityConfig config_;
  TaskQueue& queue_;
  const Owner owner_;
  std::shared_ptr<GitHubPRSource> source_;  // while GitHub is asked
  std::shared_ptr<void> signIn_;            // while it is, what tells of another sign-in
  std::optional<std::string> cursor_;       // of the poll that is about to be delivered
};

}  // namespace tessivane
