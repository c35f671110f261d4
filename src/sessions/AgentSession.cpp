#include "sessions/AgentSession.h"

#include "support/Hasher.h"
#include "support/Paths.h"

namespace tessivane {

namespace {

// The single-quoted form of `text` for a POSIX shell.
std::string shellQuoted(std::string_view text) {
  std::string quoted = "'";
  for (const char c : text) {
    if (c == '\'') {
      quoted += "'\\''";
    } else {
      quoted += c;
    }
  }
  return quoted + "'";
}

}  // namespace

std::string_view rawValue(Agent agent) {
  switch (agent) {
    case Agent::claude:
      return "claude";
    case Agent::codex:
      return "codex";
    case Agent::t3:
      return "t3";
  }
  return "";
}

std::string_view displayName(Agent agent) {
  switch (agent) {
    case Agent::claude:
      return "Claude Code";
    case Agent::codex:
      return "Codex";
    case Agent::t3:
      return "T3 Code";
  }
  return "";
}

std::string_view shortName(Agent agent) {
  switch (agent) {
    case Agent::claude:
      return "Claude";
    case Agent::codex:
      return "Codex";
    case Agent::t3:
      return "T3";
  }
  return "";
}

std::string_view label(SessionStatus status) {
  switch (status) {
    case SessionStatus::needsYou:
      return "Needs you";
    case SessionStatus::working:
      return "Working";
    case SessionStatus::yourTurn:
      return "Your turn";
    case SessionStatus::idle:
      return "Idle";
  }
  return "";
}

std::optional<SessionStatus> sessionStatus(int rawValue) {
  if (rawValue < 0 || rawValue > static_cast<int>(SessionStatus::idle))
    return std::nullopt;
  return static_cast<SessionStatus>(rawValue);
}

std::string_view rawValue(SessionKind kind) {
  switch (kind) {
    case SessionKind::session:
      return "session";
    case SessionKind::automation:
      return "automation";
    case SessionKind::subagent:
      return "subagent";
  }
  return "";
}

std::string AgentSession::id() const {
  return sessionKey(agent, nativeID);
}

bool AgentSession::isNoise() const {
  return kind != SessionKind::session && status != SessionStatus::needsYou;
}

std::optional<std::string> AgentSession::resumeCommand() const {
  if (agent == Agent::codex)
    return "codex resume " + nativeID;
  if (agent == Agent::t3)
    return std::nullopt;
  const std::string prefix = sessionKey(Agent::claude, "");
  const auto source = sourceIDs.lower_bound(prefix);
  if (source == sourceIDs.end() || !source->starts_with(prefix))
    return std::nullopt;
  const std::string command = "claude --resume " + source->substr(prefix.size());
  if (cwd.empty())
    return command;
  return "cd " + shellQuoted(cwd) + " && " + command;
}

bool AgentSession::copiesResumeCommand() const {
  return !openURL && agent == Agent::claude && resumeCommand().has_value();
}

std::size_t hashValue(const AgentSession& session) {
  Hasher hasher;
  hasher.add(session.agent)
      .add(session.nativeID)
      .add(session.title)
      .add(session.cwd)
      .add(session.projectPath)
      .add(session.model)
      .add(session.activity)
      .add(session.status)
      .add(session.detail)
      .add(session.lastMessage)
      .add(session.openURL)
      .add(session.kind);
  for (const std::string& source : session.sourceIDs)
    hasher.add(source);
  return hasher.add(session.launcher).add(session.transcriptPath).add(session.startedAt).value();
}

std::string_view projectName(std::string_view projectPath) {
  const std::string_view name = lastPathComponent(projectPath);
  return name.empty() ? "~" : name;
}

const std::string& workingDirectory(const AgentSession& session) {
  return session.cwd.empty() ? session.projectPath : session.cwd;
}

std::string sessionKey(Agent agent, std::string_view nativeID) {
  std::string key(rawValue(agent));
  key += ':';
  key += nativeID;
  return key;
}

Date windowStart(Date now, const Calendar& calendar) {
  const auto today = calendar.startOfDay(now);
  const auto yesterday = today ? calendar.addingDays(-1, *today) : std::nullopt;
  // Where the clocks skipped midnight, today began at one, and a day earlier is one too.
  const auto start = yesterday ? calendar.startOfDay(*yesterday) : std::nullopt;
  return start.value_or(now);
}

}  // namespace tessivane
