#pragma once

// One agent session on this computer as it looks at one moment: the vocabulary of the whole
// program. Plain values, safe on every thread. A session is made anew on every refresh; to find it
// again in a later snapshot compare `id()`, never the whole value.

#include <array>
#include <compare>
#include <cstddef>
#include <optional>
#include <set>
#include <string>
#include <string_view>

#include "support/Calendar.h"
#include "support/Date.h"

namespace tessivane {

enum class Agent { claude, codex, t3 };

inline constexpr std::array allAgents = {Agent::claude, Agent::codex, Agent::t3};

/// "claude", "codex", "t3": the text in keys and in printed output.
std::string_view rawValue(Agent agent);
/// "Claude Code", "Codex", "T3 Code".
std::string_view displayName(Agent agent);
/// "Claude", "Codex", "T3".
std::string_view shortName(Agent agent);

/// In the order of urgency, so that sorting by status puts the most urgent first.
enum class SessionStatus { needsYou = 0, working = 1, yourTurn = 2, idle = 3 };

/// "Needs you", "Working", "Your turn", "Idle".
std::string_view label(SessionStatus status);
/// The status with that number, 0 to 3.
std::optional<SessionStatus> sessionStatus(int rawValue);

/// A conversation that the person opened, one that a scheduled job started, or one that another
/// agent spawned.
enum class SessionKind { session, automation, subagent };

/// "session", "automation", "subagent".
std::string_view rawValue(SessionKind kind);

/// A status and the short line that explains it.
struct StatusAndDetail {
  SessionStatus status = SessionStatus::idle;
  std::string detail = {};

  friend bool operator==(const StatusAndDetail&, const StatusAndDetail&) = default;
};

struct AgentSession {
  static constexpr std::size_t maxMessageCharacters = 2000;

  Agent agent = Agent::claude;
  std::string nativeID = {};     ///< the tool's own identifier
  std::string title = {};        ///< "(untitled)" when the source has none
  std::string cwd = {};          ///< as the tool reported it; may be empty
  std::string projectPath = {};  ///< by `ProjectRootResolver`; may be empty
  std::string model = {};        ///< may be empty
  Date activity = distantPast;   ///< when the session last did something
  SessionStatus status = SessionStatus::idle;
  std::string detail = {};                  ///< one short line that explains `status`
  std::string lastMessage = {};             ///< last assistant text, at most 2,000 characters
  std::optional<std::string> openURL = {};  ///< brings the session up in its application
  SessionKind kind = SessionKind::session;
  std::set<std::string> sourceIDs = {};            ///< "{agent}:{id}" of every source folded in
  std::optional<std::string> launcher = {};        ///< what started it, in the source's words
  std::optional<std::string> transcriptPath = {};  ///< absolute path of transcript or rollout
  std::optional<Date> startedAt = {};

  /// "{agent}:{nativeID}": the session's identity everywhere.
  std::string id() const;
  /// True for automations and subagents, unless they need the person. Lists hide noise.
  bool isNoise() const;
  /// The shell command that takes the session up again in a terminal, where there is one.
  std::optional<std::string> resumeCommand() const;
  /// True when no link opens the session, so that opening it means copying `resumeCommand`.
  bool copiesResumeCommand() const;

  friend bool operator==(const AgentSession&, const AgentSession&) = default;
};

/// Hash over all sixteen fields, to go with `==`.
std::size_t hashValue(const AgentSession& session);

/// What a project is called: the last component of its path, "~" without one. Borrowed from it.
std::string_view projectName(std::string_view projectPath);

/// Where the session works: its `cwd`, or its project path when the tool reported none.
const std::string& workingDirectory(const AgentSession& session);

/// "{agent}:{nativeID}".
std::string sessionKey(Agent agent, std::string_view nativeID);

/// The start of yesterday in `calendar`: how far back the program looks. Between 24 and 48 hours
/// long, it jumps at midnight. `now` if the calendar fails.
Date windowStart(Date now, const Calendar& calendar);

/// The title that stands for "none".
inline constexpr std::string_view untitled = "(untitled)";

}  // namespace tessivane
