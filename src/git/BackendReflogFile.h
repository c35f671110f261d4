#pragma once

// One reflog of a repository: where it is and what it belongs to. Plain values.

#include <optional>
#include <string>

#include "git/BackendReflogEntry.h"

namespace tessivane {

struct BackendReflogFile {
  std::string path = {};
  std::optional<std::string> worktree = {};  ///< the working tree it belongs to, when known
  std::optional<std::string> branch = {};    ///< of a branch's log, the branch; may hold slashes
  std::optional<std::string> headFile = {};  ///< of a HEAD's log, the HEAD
  bool isLinked = false;                     ///< the HEAD is a linked worktree's own

  friend bool operator==(const BackendReflogFile&, const BackendReflogFile&) = default;
};

/// An entry and the log it was read from.
struct BackendReflogPair {
  BackendReflogEntry entry = {};
  BackendReflogFile file = {};
};

}  // namespace tessivane
