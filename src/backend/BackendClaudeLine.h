#pragma once

// One message line of a Claude Code transcript, as far as pull requests and edits need it. The
// texts are borrowed from the line (see `JSONText`). Only what stands at the top level makes a line
// a message: the client's bookkeeping lines repeat whole messages, commands and notifications
// deeper inside (seen up to 2.1.330).

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "backend/BackendGHCommand.h"
#include "support/JSON.h"

namespace tessivane {

struct BackendClaudeBlock {
  enum class Kind { other, toolUse, toolResult };

  Kind kind = Kind::other;
  std::optional<JSONText> id = {};         ///< of a tool use
  std::optional<JSONText> name = {};       ///< of a tool use
  std::optional<JSONText> filePath = {};   ///< in a tool use's input
  std::optional<JSONText> command = {};    ///< in a tool use's input
  std::optional<JSONText> toolUseID = {};  ///< of a tool result
  bool isError = false;                    ///< of a tool result
  std::vector<JSONText> texts = {};        ///< a tool result's content, piece by piece

  /// The pieces of a tool result, one a line.
  std::string text() const;
};

struct BackendClaudeLine {
  enum class Type { other, user, assistant };

  Type type = Type::other;
  std::optional<JSONText> timestamp = {};
  std::optional<JSONText> contentText = {};     ///< the message's content when it is plain text
  std::vector<BackendClaudeBlock> blocks = {};  ///< when it is a list, of objects only

  // From the result that the client keeps for itself beside the message.
  std::optional<JSONText> backgroundTaskID = {};
  std::optional<std::int64_t> pullNumber = {};
  std::optional<JSONText> pullURL = {};
  std::optional<JSONText> readPath = {};     ///< the file that was read
  std::optional<JSONText> readContent = {};  ///< and what was in it

  /// Nothing when the line is no JSON object. What it holds is good until the reader is used again.
  static std::optional<BackendClaudeLine> parse(JSONReader& reader, std::string_view line);

  BackendGHCommand::GitOperation gitOperation() const;
};

}  // namespace tessivane
