#pragma once

// Makes the single happenings of the synthetic stream, and keeps what ties them together: the
// draws, the pull requests that are open, the edits of a minute. Part of the synthetic source, on
// its thread.

#include <cstddef>
#include <cstdint>
#include <map>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "activity/ActivityEvent.h"
#include "activity/Mulberry32.h"
#include "activity/SyntheticWork.h"
#include "support/Date.h"

namespace tessivane {

struct SyntheticBatch {
  std::vector<ActivityEvent> events = {};
  std::vector<EditBucket> edits = {};

  friend bool operator==(const SyntheticBatch&, const SyntheticBatch&) = default;
};

class SyntheticMaker final {
 public:
  explicit SyntheticMaker(std::uint32_t seed);

  double draw() { return rng_.draw(); }
  std::size_t below(std::size_t count) { return rng_.below(count); }
  std::string_view pick(std::span<const std::string_view> texts);

  /// An event without a ref: `needsYou`, `finished`, `started`.
  ActivityEvent event(ActivityKind kind,
                      const SyntheticSession& session,
                      std::string_view title,
                      Date at);
  ActivityEvent commit(const SyntheticSession& session, std::string_view subject, Date at);
  /// The session's branch comes into being, alone or with a worktree.
  ActivityEvent branched(const SyntheticSession& session, bool withWorktree, Date at);

  /// The project's next pull request, which is open from now on.
  ActivityEvent openPullRequest(const SyntheticSession& session, std::string_view title, Date at);
  std::size_t openCount() const { return openPRs_.size(); }
  /// Merges an open one: `place` is below `openCount`, 0 being the one that was opened first.
  ActivityEvent mergePullRequest(std::size_t place, Date at);

  /// What the session has edited in the minute, this edit included. Each edit draws a number of
  /// files, of which it names as many as the project has. A later one in the same minute adds its
  /// paths and leaves the larger number of files: most of it is the same ones again.
  EditBucket edit(const SyntheticSession& session, Date at);
  /// Forgets the minutes before `now`.
  void forgetEdits(Date now);

 private:
  struct PullRequest {
    const SyntheticSession* session = nullptr;
    std::int64_t number = 0;
    std::string title = {};
  };

  ActivityEvent withRef(ActivityKind kind,
                        const SyntheticSession& session,
                        std::string ref,
                        std::string_view title,
                        Date at) const;

  Mulberry32 rng_;
  std::uint64_t count_ = 0;
  std::map<std::string_view, std::int64_t> prNumbers_;
  std::vector<PullRequest> openPRs_;
  std::map<std::string, EditBucket> editBuckets_;
};

}  // namespace tessivane
