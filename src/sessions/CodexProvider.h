#pragma once

// The sessions of Codex. Its state database tells which threads there are and how recent they are;
// the tail of a thread's rollout file tells what it did last. Both are only ever read.
//
// Owned by `SessionDiscovery` and used inside one discovery pass at a time; it has no lock. Tables,
// columns and records are those that Codex 0.120 to 0.169 was seen to write.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "sessions/AgentSession.h"
#include "sessions/ProviderCache.h"
#include "sessions/RolloutTail.h"
#include "sessions/SessionProvider.h"
#include "support/Date.h"
#include "support/ReadOnlyDatabase.h"

namespace tessivane {

/// Stands for a thread's title without reading it: titles are whole first messages and can be long.
struct TitleStamp {
  std::optional<std::int64_t> updatedMs = {};
  std::int64_t nameLength = 0;
  std::int64_t titleLength = 0;

  friend bool operator==(const TitleStamp&, const TitleStamp&) = default;
};

class CodexProvider final : public SessionProvider {
 public:
  /// Considered in one pass: the most recently active threads.
  static constexpr std::size_t maxThreads = 300;
  static constexpr std::size_t maxTitleCharacters = 200;
  static constexpr std::size_t titlesPerQuery = 200;

  using Titles = std::unordered_map<std::string, std::string>;

  struct Status {
    SessionStatus status = SessionStatus::idle;
    std::string detail = {};
    std::string lastMessage = {};

    friend bool operator==(const Status&, const Status&) = default;
  };

  /// `directory` is where Codex keeps its files ("{home}/.codex"); `dbPath`, if given, stands for
  /// the latest database there.
  CodexProvider(std::string directory, std::optional<std::string> dbPath, Clock now);

  /// The threads that are neither archived nor Codex's own reviewers, the most recent turn first. A
  /// thread whose rollout can't be read is listed with a status by age. No database is no error.
  /// Blocks at most two seconds on a writer's lock.
  std::vector<AgentSession> sessions(Date since, ProjectRootResolver& roots) override;

  /// Why the last pass found nothing; nothing if it went well.
  const std::optional<std::string>& lastError() const { return lastError_; }

  /// The path of the "state_N.sqlite" in `directory` with the highest N.
  static std::optional<std::string> latestStateDatabase(const std::string& directory);

  /// What the last `terminal` event of a rollout means `age` after the thread's last activity.
  static Status status(const std::optional<std::string>& lifecycle,
                       std::string_view lastMessage,
                       Seconds age);

  /// The titles of `rows` by thread id, of which only those with a new stamp are fetched. A failed
  /// query leaves its error on `db` and ends the fetching.
  Titles resolveTitles(const std::vector<DatabaseRow>& rows, ReadOnlyDatabase& db, bool hasName);

  RolloutTail readTail(const std::string& path) { return tailReader_.read(path); }

  /// How many titles have been fetched so far.
  std::size_t titleFetches() const { return titleFetches_; }

 private:
  struct Pass {
    Date since;
    Date now;
    ProjectRootResolver& roots;
  };

  std::vector<AgentSession> fail(const ReadOnlyDatabase& db);
  std::optional<AgentSession> session(const DatabaseRow& row,
                                      const Titles& titles,
                                      const Pass& pass);
  RolloutTail tailOf(const std::string& path);

  const std::string directory_;
  const std::optional<std::string> dbPath_;
  const Clock now_;
  std::optional<std::string> lastError_;
  DatabaseCopyMemo copies_;
  RolloutTailReader tailReader_;
  FileDerivedCache<RolloutTail> eventCache_;
  ProviderCacheMemo<TitleStamp, std::string> titleCache_;
  std::size_t titleFetches_ = 0;
};

}  // namespace tessivane
