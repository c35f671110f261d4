#pragma once

// What a `gh pr create` or `gh pr merge` in a shell command promises, and what comes of it once its
// output is known. Pure functions over text from transcripts, which may be anything: their time
// grows with the text's length, and what is not understood is no command. Safe on every thread.

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backend/BackendFinding.h"

namespace tessivane {

struct BackendGHCommand {
  /// A pull request as named by a URL.
  struct PullURL {
    std::string slug = {};  ///< "owner/repo" in lower case
    std::int64_t number = 0;

    friend bool operator==(const PullURL&, const PullURL&) = default;
  };

  /// What the client noted of the command's effect: `toolUseResult.gitOperation.pr` in lines of
  /// Claude Code 2.1.197 and later.
  struct GitOperation {
    std::optional<std::int64_t> number = {};
    std::optional<std::string> url = {};
  };

  ActivityKind kind = ActivityKind::prOpened;  ///< or `prMerged`
  std::optional<std::int64_t> number = {};     ///< named by the command; only of a merge
  std::optional<std::string> slug = {};        ///< "owner/repo" in lower case
  std::optional<std::string> title = {};       ///< only of a create

  friend bool operator==(const BackendGHCommand&, const BackendGHCommand&) = default;

  /// The first such command in a shell command line. Nothing for a merge that only switches
  /// merging later on or off.
  static std::optional<BackendGHCommand> parse(std::string_view command);

  /// What the command did, given that it succeeded. A create counts only when a URL proves it, a
  /// merge only when its number is known.
  std::optional<BackendPRFinding> finding(std::string_view output,
                                          const GitOperation& gitOperation,
                                          Date date) const;

  /// The value of the title flag on one line, at most 200 characters. Nothing when that is empty or
  /// begins with what the shell would have put in ("$").
  static std::optional<std::string> titleIn(std::string_view tail);

  /// The last pull request's URL in a text; nothing when its number does not fit.
  static std::optional<PullURL> lastPullURL(std::string_view text);

  /// The words that a shell makes of a text without expanding anything. A quote left open ends with
  /// the text. White space is Unicode's.
  static std::vector<std::string> shellWords(std::string_view text);
};

}  // namespace tessivane
