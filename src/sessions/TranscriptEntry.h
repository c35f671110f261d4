#pragma once

// One line of a Claude Code transcript, as far as the session list needs it. The texts are borrowed
// from the line (see `JSONText`). Only what stands at the top level makes a line a message: the
// client's bookkeeping lines repeat whole messages deeper inside (seen in 2.1.330).

#include <optional>
#include <string_view>
#include <vector>

#include "support/JSON.h"

namespace tessivane {

struct TranscriptBlock {
  enum class Kind { other, text, toolUse, toolResult };

  Kind kind = Kind::other;
  /// Of a text block its "text"; of a tool result its "content", or the first text in that.
  std::optional<JSONText> text = {};
  std::optional<JSONText> name = {};  ///< of a tool use
};

struct TranscriptEntry {
  enum class Role { other, user, assistant };

  Role role = Role::other;  ///< from the top-level "type"
  bool isMeta = false;      ///< a user entry that the person did not write
  std::optional<JSONText> timestamp = {};
  std::optional<JSONText> entrypoint = {};
  std::optional<JSONText> cwd = {};
  std::optional<JSONText> customTitle = {};
  std::optional<JSONText> aiTitle = {};
  std::optional<JSONText> permissionMode = {};
  std::optional<JSONText> model = {};        ///< of the message
  std::optional<JSONText> contentText = {};  ///< the message's content when that is plain text
  std::vector<TranscriptBlock> blocks = {};  ///< the message's content when that is a list

  bool isMessage() const { return role != Role::other; }

  /// True when this user entry only records that the person broke the run off: it has texts, and
  /// each of them is one of the client's two markers.
  bool isInterruptMarker() const;

  /// The first block of that kind.
  const TranscriptBlock* firstBlock(TranscriptBlock::Kind kind) const;
};

/// Parses a line into `entry`, whose memory is used again. False when the line is no JSON object;
/// then `entry` means nothing.
bool parseTranscriptEntry(JSONReader& reader, PaddedLine line, TranscriptEntry& entry);

}  // namespace tessivane
