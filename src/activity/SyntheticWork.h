#pragma once

// Five imaginary projects and who works on them: what the synthetic source draws from. Constants.

#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "sessions/AgentSession.h"

namespace tessivane {

struct SyntheticSession {
  std::string_view id = {};
  std::string_view project = {};
  Agent owner = Agent::claude;
  Agent engine = Agent::claude;
  std::string_view title = {};
  SessionKind kind = SessionKind::session;
  std::string_view branch = {};  ///< of its commits
};

struct SyntheticProject {
  std::string_view name = {};
  int lastPullRequest = 0;  ///< the number of the newest one before the stream begins
  std::span<const std::string_view> files = {};
};

namespace synthetic_work {

std::span<const SyntheticSession> sessions();
std::span<const SyntheticProject> projects();
/// The project with that name; an empty one for any other.
const SyntheticProject& project(std::string_view name);

/// What commits of a project say.
std::vector<std::string_view> subjects(std::string_view project);
/// Those of them that belong to the session's task, in the order in which the task is done.
std::vector<std::string_view> subjectsOf(const SyntheticSession& session);

/// What `finished` and `needsYou` events say.
std::span<const std::string_view> finishedTexts();
std::span<const std::string_view> needsYouTexts();
/// Those of the latter that the session could ask.
std::span<const std::string_view> questionsOf(const SyntheticSession& session);

}  // namespace synthetic_work

}  // namespace tessivane
