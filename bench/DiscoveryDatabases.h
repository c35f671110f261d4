#pragma once

// The databases of the made-up home: Codex's threads and T3 Code's, with the columns and about the
// amounts of text that real ones have. Left as after a clean end: write-ahead logging, no log.

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "support/Date.h"

namespace tessivane {

struct CodexThreadPlan {
  std::string id = {};
  std::string rolloutPath = {};
  std::string cwd = {};
  std::string title = {};  ///< JSON-escaped; taken as it is
  std::string source = "cli";
  std::string threadSource = "user";
  std::string originator = "codex-tui";
  Date created = {};
  Date updated = {};
  bool archived = false;
};

/// One T3 thread and the native session that it drives.
struct T3ThreadPlan {
  std::size_t index = 0;
  std::string driver = {};
  std::string nativeID = {};
  std::string cwd = {};
  Date created = {};
  Date updated = {};
  bool isOld = false;  ///< one that no pass lists: archived, deleted or untouched for days
};

void writeCodexDatabase(const std::string& home, const std::vector<CodexThreadPlan>& threads);

void writeT3Database(const std::string& home,
                     const std::vector<T3ThreadPlan>& threads,
                     std::uint64_t seed);

}  // namespace tessivane
