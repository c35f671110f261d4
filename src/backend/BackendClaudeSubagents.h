#pragma once

// Finds the subagents that Claude Code sessions start, by the files that each leaves beside its
// session's transcript: for "{x}.jsonl" the directory "{x}/subagents" with "agent-{id}.jsonl"
// (Claude Code 2.1.50 and later) and "agent-{id}.meta.json" (2.1.110 and later). Owned by the
// activity store and used on its queue.

#include <cstddef>
#include <optional>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "activity/ActivityEvent.h"
#include "sessions/AgentSession.h"
#include "support/Date.h"
#include "support/Files.h"
#include "support/JSON.h"

namespace tessivane {

class BackendClaudeSubagents final {
 public:
  static constexpr std::size_t maxHeadBytes = 262'144;
  static constexpr std::size_t maxMetaBytes = 1 << 20;

  /// The starts, within the window of the event database, of subagents not seen before. The ref is
  /// "{session key}/{agent file's name without extension}". Directories in which nothing has come
  /// or gone since the last look cost one stat.
  std::vector<ActivityEvent> events(const std::vector<AgentSession>& sessions, Date now);

 private:
  void addEvents(const AgentSession& parent,
                 const std::string& folder,
                 const std::vector<NamedStamp>& files,
                 Date now,
                 std::vector<ActivityEvent>& events);
  std::optional<Date> firstTimestamp(const std::string& path);
  std::string title(const std::string& meta);

  std::unordered_map<std::string, FileStamp> folderStamps_;  // by path
  std::unordered_set<std::string> handled_;                  // paths of agent files
  JSONReader reader_;
};

}  // namespace tessivane
