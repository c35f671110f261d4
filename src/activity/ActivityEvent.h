#pragma once

// What happened, in the vocabulary of the Activity window: kinds, events, runs of edits, and the
// ranges a person looks at. Plain values, safe on every thread.

#include <array>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "sessions/AgentSession.h"
#include "support/Date.h"

namespace tessivane {

/// How large the tag of an event is drawn; also the order in which cards get their place.
enum class TimelineSizeClass { large = 0, medium = 1, small = 2 };

/// In the order of tables and filters.
enum class ActivityKind { commit, prOpened, prMerged, needsYou, finished, started, branched };

inline constexpr std::array allActivityKinds = {ActivityKind::commit,
                                                ActivityKind::prOpened,
                                                ActivityKind::prMerged,
                                                ActivityKind::needsYou,
                                                ActivityKind::finished,
                                                ActivityKind::started,
                                                ActivityKind::branched};

/// "commit", "prOpened", ...: the text in event ids, the database and the settings.
std::string_view rawValue(ActivityKind kind);
/// The kind with that text; nothing for any other.
std::optional<ActivityKind> activityKind(std::string_view text);
/// What a filter for the kind is called: "Commits", "PRs opened", ...
std::string_view filterLabel(ActivityKind kind);
TimelineSizeClass defaultSize(ActivityKind kind);

/// How far back a view looks.
enum class ActivityRange { m15, h1, h6 };

inline constexpr std::array allActivityRanges = {
    ActivityRange::m15, ActivityRange::h1, ActivityRange::h6};

/// "15m", "1h", "6h".
std::string_view rawValue(ActivityRange range);
std::optional<ActivityRange> activityRange(std::string_view text);
Seconds span(ActivityRange range);

/// A root that begins so stands for a repository on GitHub that no local project claims.
inline constexpr std::string_view gitHubRootPrefix = "github:";
bool isGitHubRoot(std::string_view projectRoot);

/// A run of file edits by one session in one minute.
struct EditBucket {
  std::string projectRoot = {};
  std::string projectName = {};
  std::optional<std::string> sessionID = {};
  Date start = distantPast;  ///< the minute's first instant
  std::int64_t files = 0;    ///< how many files were edited
  std::vector<std::string> paths = {};

  /// "{projectRoot}:{sessionID}:{start in whole seconds since 1970}", "-" without a session. Two
  /// buckets with one id are the same bucket; the later delivered one wins.
  std::string id() const;

  friend bool operator==(const EditBucket&, const EditBucket&) = default;
};

/// One thing that happened.
struct ActivityEvent {
  std::string id = {};  ///< unique across the feed: "{kind}:{root}:{ref}"
  ActivityKind kind = ActivityKind::commit;
  Date date = distantPast;
  std::string projectRoot = {};
  std::string projectName = {};
  std::optional<std::string> sessionID = {};
  std::optional<std::string> sessionTitle = {};
  std::optional<Agent> owner = {};      ///< the agent whose session it is
  std::optional<Agent> engine = {};     ///< the agent that did the work
  std::optional<std::string> ref = {};  ///< commit hash, pull request number, ...
  std::string title = {};
  /// Of a pull request the key by which its two sightings are known to be one; "worktree" for a
  /// branch that came with a new worktree.
  std::optional<std::string> detail = {};
  std::optional<std::string> branch = {};
  Date firstSeen = distantPast;  ///< when the program learned of it; no part of the order

  /// The commit's first seven characters; the ref as it is for pull requests, `needsYou` and
  /// `finished`; nothing for the rest.
  std::optional<std::string> shortRef() const;
  /// Of a `started` event the session's title, where that says more than `title`.
  std::optional<std::string> startedParent() const;
  /// Of a new worktree its branch, where that says more than `title`.
  std::optional<std::string> branchedOn() const;
  /// The second line of the event's card.
  std::optional<std::string> cardDetail() const;

  friend bool operator==(const ActivityEvent&, const ActivityEvent&) = default;
};

/// Hashes over all fields, to go with `==`.
std::size_t hashValue(const EditBucket& bucket);
std::size_t hashValue(const ActivityEvent& event);

}  // namespace tessivane
