#pragma once

// What the end of a Claude Code transcript tells about a session. A value, made from lines and kept
// by `ClaudeProvider` for as long as the file stays unchanged.

#include <optional>
#include <string>

#include "sessions/TranscriptEntry.h"
#include "support/Date.h"
#include "support/JSON.h"
#include "support/JSONLines.h"

namespace tessivane {

struct TranscriptTail {
  std::optional<Date> lastMessageDate = {};  ///< of the last real message, never of a marker
  bool interrupted = false;                  ///< the last message is an interruption marker
  bool lastIsAssistant = false;
  std::optional<std::string> pendingTool = {};  ///< what the last message calls, if it calls a tool
  std::string lastText = {};                    ///< latest assistant text, at most 2,000 characters
  std::optional<std::string> title = {};
  std::optional<std::string> permissionMode = {};
  std::optional<std::string> model = {};

  friend bool operator==(const TranscriptTail&, const TranscriptTail&) = default;
};

/// Gathers a tail from lines given from the last one backward, and tells when it needs no more.
class TranscriptTailParser final {
 public:
  /// Looks at one line. Lines that cannot matter any more are passed over by their bytes alone.
  void add(JSONReader& reader, PaddedLine line);
  /// True when no earlier line can change the result.
  bool isComplete() const;
  const TranscriptTail& tail() const { return tail_; }

 private:
  bool mayMatter(std::string_view line) const;
  void take(const TranscriptEntry& entry);
  void takeMessage(const TranscriptEntry& entry);
  void takeAssistant(const TranscriptEntry& entry);

  bool needsMessage() const { return !hasLast_ || needsDate_; }
  bool needsAssistant() const { return !hasModel_ || tail_.lastText.empty(); }

  TranscriptTail tail_;
  TranscriptEntry entry_;   // memory used again for every line
  bool hasLast_ = false;    // the last message is found
  bool needsDate_ = false;  // it was a marker: the date is that of the message before it
  bool hasModel_ = false;   // the last assistant entry is found, with a model or without
};

/// The tail that these lines tell.
TranscriptTail parseTranscriptTail(JSONReader& reader, TailLines& lines);

}  // namespace tessivane
