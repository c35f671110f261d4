#pragma once

// What only the beginning of a Claude Code transcript tells about a session. A value, kept by
// `ClaudeProvider` for as long as the file stays unchanged.

#include <optional>
#include <string>
#include <string_view>

#include "support/Date.h"
#include "support/JSON.h"
#include "support/JSONLines.h"

namespace tessivane {

struct TranscriptHead {
  std::optional<std::string> entrypoint = {};   ///< how the session was started, such as "cli"
  std::optional<std::string> cwd = {};          ///< the working directory it began in
  std::optional<std::string> firstPrompt = {};  ///< what the person first wrote, on one line
  std::optional<Date> startedAt = {};

  friend bool operator==(const TranscriptHead&, const TranscriptHead&) = default;
};

/// The head that these lines tell. No more of them are read than it takes.
TranscriptHead parseTranscriptHead(JSONReader& reader, HeadLines& lines);

/// What the text of a user entry gives as the session's first prompt: a slash command by its name,
/// else the first 200 characters on one line. Nothing for the client's own markup and for blanks.
std::optional<std::string> promptTitle(std::string_view text);

}  // namespace tessivane
