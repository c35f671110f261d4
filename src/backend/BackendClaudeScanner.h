#pragma once

// Finds pull requests and edits in the lines that are appended to one Claude Code transcript, and
// remembers what is needed until a command's result comes: commands without a result, and those
// whose output goes to a file in the background. That memory ends with the scanner.
//
// For one thread at a time, the activity queue, whose activity store keeps a scanner for each
// transcript. Lines of no interest cost a search of their bytes and no allocation.

#include <cstddef>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/BackendClaudeLine.h"
#include "backend/BackendFinding.h"
#include "backend/BackendGHCommand.h"
#include "support/Date.h"
#include "support/JSON.h"

namespace tessivane {

class BackendClaudeScanner final {
 public:
  /// How much of a background command's output file is read, in bytes.
  static constexpr std::size_t maxOutput = 262144;

  /// How many commands may wait for their result. Past that the older ones are forgotten: in real
  /// transcripts they are a handful, and those of a client that was killed wait for ever.
  static constexpr std::size_t maxWaiting = 1000;

  /// What the lines tell, in their order. Each line must be whole. A line whose date cannot be read
  /// counts as written `now`.
  std::vector<BackendFinding> scan(std::string_view lines, Date now);

  /// The branch that the transcript named last; "HEAD" where there is none (Claude Code 2.1.330).
  const std::optional<std::string>& branch() const { return branch_; }

 private:
  struct BackgroundCommand {
    BackendGHCommand gh = {};
    std::optional<std::string> output = {};  // the path of the file it writes to
  };

  std::optional<std::size_t> findCandidate(std::string_view lines) const;
  bool isInteresting(std::string_view line) const;
  void handle(const BackendClaudeLine& line, Date now);
  void handleToolUse(const BackendClaudeBlock& block, Date date);
  void handleResult(const BackendClaudeBlock& block, const BackendClaudeLine& line, Date date);
  void handleNotification(std::string_view text, Date date);
  void handleReadOfOutput(const BackendClaudeLine& line, Date date);
  void tell(std::optional<BackendPRFinding> finding);

  std::map<std::string, BackendGHCommand> pending_;      // by the id of the tool call
  std::map<std::string, BackgroundCommand> background_;  // by the same
  std::optional<std::string> branch_;
  std::vector<BackendFinding> findings_;  // of the chunk being scanned
};

}  // namespace tessivane
