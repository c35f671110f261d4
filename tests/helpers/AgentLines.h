#pragma once

// Lines that Claude Code and Codex append to their files while they work, with the fields in the
// order in which the clients write them, each ended. Pure functions.

#include <cstdint>
#include <string>
#include <vector>

#include "support/Date.h"

namespace tessivane {

/// The lines of one Claude Code session in a terminal.
struct ClaudeLines {
  std::string sessionID = {};
  std::string cwd = {};
  std::string branch = "main";

  std::string prompt(const std::string& text, Date date) const;
  std::string answer(const std::string& text, Date date) const;
  std::string edit(const std::string& id, const std::string& path, Date date) const;
  std::string command(const std::string& id, const std::string& command, Date date) const;
  std::string result(const std::string& id, const std::string& output, Date date) const;
  std::string failure(const std::string& id, const std::string& output, Date date) const;
  /// The result of a command that goes on in the background, and later the word that it has ended.
  std::string sentToBackground(const std::string& id, const std::string& path, Date date) const;
  std::string notification(const std::string& id, const std::string& path, Date date) const;
};

/// The lines of one Codex rollout whose history is paginated.
struct CodexLines {
  std::string threadID = {};
  std::string cwd = {};

  std::string opening(Date date) const;
  std::string turnBegins(Date date) const;
  std::string turnEnds(Date date) const;
  std::string edit(const std::string& id, const std::vector<std::string>& paths, Date date) const;
  std::string command(const std::string& command,
                      const std::string& output,
                      int exitCode,
                      Date date) const;
};

/// What "gh pr create" prints when it has worked.
std::string pullRequestURL(const std::string& slug, std::int64_t number);

}  // namespace tessivane
