#pragma once

// The metadata file that the Claude desktop application keeps for one of its sessions. A value,
// kept by `ClaudeProvider` for as long as the file stays unchanged.

#include <optional>
#include <string>
#include <string_view>

#include "support/Date.h"
#include "support/JSON.h"

namespace tessivane {

struct ClaudeDesktopMetadata {
  std::optional<std::string> cliSessionID = {};  ///< the session id of its transcript
  std::optional<std::string> sessionID = {};     ///< the application's own id
  std::optional<std::string> title = {};
  std::optional<std::string> cwd = {};
  std::optional<std::string> originCwd = {};
  std::optional<std::string> model = {};
  std::optional<std::string> permissionMode = {};
  std::optional<Date> lastActivityAt = {};
  std::optional<Date> createdAt = {};
  bool isArchived = false;
  bool awaitsPerson = false;  ///< "interruptedAwaitingPerson" is there, and neither null nor false

  friend bool operator==(const ClaudeDesktopMetadata&, const ClaudeDesktopMetadata&) = default;
};

/// Nothing when `text` is not one JSON object. A key of an unexpected type counts as absent.
std::optional<ClaudeDesktopMetadata> parseClaudeDesktopMetadata(JSONReader& reader,
                                                                std::string_view text);

}  // namespace tessivane
