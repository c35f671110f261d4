#pragma once

// What the end of a Codex rollout tells of its thread: the last step of the last turn, and when
// something last happened. Rollouts are JSON lines that Codex appends to, newest last.
//
// A `RolloutTail` is a plain value. A `RolloutTailReader` keeps its memory from file to file; it
// belongs to one provider and to one thread at a time.

#include <array>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

#include "support/ByteSearch.h"
#include "support/Date.h"
#include "support/JSON.h"
#include "support/JSONLines.h"

namespace tessivane {

struct RolloutTail {
  /// How far back from its end a rollout is read, in bytes.
  static constexpr std::size_t maxBytes = 128'000;

  /// Events that ask the person for something. Codex 0.120 to 0.169 keeps them out of the file.
  static constexpr std::array<std::string_view, 3> needsInput = {
      "exec_approval_request", "apply_patch_approval_request", "request_user_input"};
  /// Events that tell where a turn stands; the last one counts.
  static constexpr std::array<std::string_view, 6> terminal = {
      needsInput[0], needsInput[1], needsInput[2], "task_complete", "task_started", "turn_aborted"};
  /// Events that count as the thread doing something. Records of type "response_item" do, too.
  static constexpr std::array<std::string_view, 10> activityEvents = {terminal[0],
                                                                      terminal[1],
                                                                      terminal[2],
                                                                      terminal[3],
                                                                      terminal[4],
                                                                      terminal[5],
                                                                      "user_message",
                                                                      "agent_message",
                                                                      "item_completed",
                                                                      "token_count"};

  std::optional<std::string> lifecycle = {};  ///< the last of the `terminal` events
  std::string lastMessage = {};               ///< what the agent said with it, cut and trimmed
  std::optional<Date> lastActivity = {};      ///< when the last activity happened

  friend bool operator==(const RolloutTail&, const RolloutTail&) = default;
};

class RolloutTailReader final {
 public:
  /// Reads backwards from the end of the file and stops at the first `terminal` event. What is not
  /// a regular file, can't be read or holds no such records gives the tail of no records, and a
  /// record that can't be used is passed over.
  RolloutTail read(const std::string& path);

 private:
  bool mayMatter(std::string_view line, const RolloutTail& tail) const;
  void take(PaddedLine line, RolloutTail& tail);

  // Codex escapes nothing in its own names. The quotes keep out what people and agents merely write
  // about: within a text they'd be escaped.
  const NeedleSet records_{"\"event_msg\"", "\"response_item\""};
  const NeedleSet events_{"\"event_msg\""};
  JSONReader reader_;
  LineBuffer buffer_;
};

}  // namespace tessivane
