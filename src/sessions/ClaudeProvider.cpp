#include "sessions/ClaudeProvider.h"

#include <sys/stat.h>

#include <algorithm>
#include <cctype>
#include <filesystem>
#include <utility>

#include "sessions/ProjectRootResolver.h"
#include "support/Files.h"
#include "support/Paths.h"

namespace tessivane {

namespace {

// Each budget is tried small first, as that nearly always suffices. The large one is the most that
// is ever read of a file at once.
constexpr std::size_t tailBudget = 256'000;
constexpr std::size_t headBudget = 128'000;
constexpr std::size_t largeBudget = 8'000'000;

constexpr Seconds quietTool{120};      // after that a called tool probably waits for approval
constexpr Seconds stalledTool{900};    // and where nothing asks for approval, it hangs
constexpr Seconds settledMessage{15};  // until then more of the answer may follow

constexpr std::string_view transcriptSuffix = ".jsonl";

bool asksNoApproval(const std::optional<std::string>& permissionMode) {
  return permissionMode == "bypassPermissions" || permissionMode == "auto";
}

StatusAndDetail pendingToolStatus(const std::string& tool,
                                  const std::optional<std::string>& permissionMode,
                                  Seconds age) {
  if (age < quietTool)
    return {SessionStatus::working, "Running " + tool};
  if (!asksNoApproval(permissionMode)) {
    return {SessionStatus::needsYou, tool + " may need your approval"};
  }
  if (age < stalledTool)
    return {SessionStatus::working, "Running " + tool};
  return {SessionStatus::idle, "Stalled in " + tool};
}

bool isMetadataName(std::string_view name) {
  return name.starts_with("local_") && name.ends_with(".json");
}

// Deep enough for any real layout (two levels are known); an end for one that is not.
constexpr int maxMetadataDepth = 16;

// The metadata files below `directory`, by name within each directory. Links to directories are not
// followed, so that a loop of them ends.
void collectMetadataFiles(const std::string& directory,
                          int depth,
                          std::vector<std::string>& paths) {
  auto names = directoryEntries(directory);
  std::sort(names.begin(), names.end());
  for (const std::string& name : names) {
    const std::string path = joinedPath(directory, name);
    if (isMetadataName(name)) {
      paths.push_back(path);
      continue;
    }
    struct stat status {};
    if (depth < maxMetadataDepth && ::lstat(path.c_str(), &status) == 0 &&
        S_ISDIR(status.st_mode)) {
      collectMetadataFiles(path, depth + 1, paths);
    }
  }
}

// The directory in which the client keeps the transcripts of sessions started in `cwd`: each
// character but letters and digits becomes a dash (seen in 1.0.128 to 2.1.330; long names are cut).
// A session can have moved on from where it started, so this is the best guess, not the answer.
std::string projectDirectoryName(std::string_view cwd) {
  std::string name(cwd);
  std::replace_if(
      name.begin(),
      name.end(),
      [](char c) { return std::isalnum(static_cast<unsigned char>(c)) == 0; },
      '-');
  return name;
}

// A session id names a file in a project directory. One that would lead elsewhere names none.
bool isFileName(std::string_view id) {
  return !id.empty() && id.find('/') == std::string_view::npos &&
         id.find('\0') == std::string_view::npos;
}

}  // namespace

ClaudeProvider::ClaudeProvider(Directories directories, Clock now)
    : directories_(std::move(directories)), now_(std::move(now)) {}

std::vector<AgentSession> ClaudeProvider::sessions(Date since, ProjectRootResolver& roots) {
  std::unordered_set<std::string> desktopIDs;
  auto sessions = desktopSessions(since, roots, desktopIDs);
  auto terminal = terminalSessions(since, desktopIDs, roots);
  std::move(terminal.begin(), terminal.end(), std::back_inserter(sessions));
  return sessions;
}

StatusAndDetail ClaudeProvider::status(bool awaitingPerson,
                                       const TranscriptTail& tail,
                                       const std::optional<std::string>& permissionMode,
                                       Seconds age) {
  if (awaitingPerson)
    return {SessionStatus::needsYou, "Interrupted, waiting on you"};
  if (tail.interrupted)
    return {SessionStatus::idle, "Interrupted"};
  if (!tail.lastIsAssistant) {
    if (age < quietTool)
      return {SessionStatus::working, "Working"};
    return {SessionStatus::idle, "Idle"};
  }
  if (tail.pendingTool)
    return pendingToolStatus(*tail.pendingTool, permissionMode, age);
  if (age < settledMessage)
    return {SessionStatus::working, "Finishing"};
  return {SessionStatus::yourTurn, "Done, your turn"};
}

std::vector<AgentSession> ClaudeProvider::desktopSessions(
    Date since, ProjectRootResolver& roots, std::unordered_set<std::string>& desktopIDs) {
  std::vector<std::string> paths;
  const auto directory = std::find_if(directories_.sessions.begin(),
                                      directories_.sessions.end(),
                                      [](const std::string& path) { return fileExists(path); });
  if (directory != directories_.sessions.end())
    collectMetadataFiles(*directory, 0, paths);
  std::vector<AgentSession> sessions;
  ProjectNames projectNames;
  for (std::string& path : paths) {
    const auto stamp = fileStamp(path);
    if (!stamp)
      continue;
    const File file{std::move(path), *stamp};
    const auto& found = metadata(file);
    if (!found)
      continue;
    // Before any filter: an archived or old desktop session still owns its transcript.
    if (found->cliSessionID)
      desktopIDs.insert(*found->cliSessionID);
    if (stamp->modificationDate() < since || found->isArchived)
      continue;
    auto session = desktopSession(file, *found, since, projectNames, roots);
    if (session)
      sessions.push_back(std::move(*session));
  }
  return sessions;
}

std::optional<AgentSession> ClaudeProvider::desktopSession(const File& file,
                                                           const ClaudeDesktopMetadata& metadata,
                                                           Date since,
                                                           ProjectNames& projectNames,
                                                           ProjectRootResolver& roots) {
  static const TranscriptTail noTail;
  std::optional<std::string> transcript;
  if (metadata.cliSessionID)
    transcript = transcriptPath(*metadata.cliSessionID, metadata.cwd.value_or(""), projectNames);
  std::optional<FileStamp> stamp;
  if (transcript)
    stamp = fileStamp(*transcript);
  const TranscriptTail& end = stamp ? tail(*transcript, *stamp) : noTail;

  Date activity = metadata.lastActivityAt.value_or(metadata.createdAt.value_or(distantPast));
  if (end.lastMessageDate)
    activity = std::max(activity, *end.lastMessageDate);
  if (activity < since)
    return std::nullopt;
  const auto& mode = metadata.permissionMode ? metadata.permissionMode : end.permissionMode;
  auto derived = status(metadata.awaitsPerson, end, mode, elapsed(activity, now_()));

  AgentSession session;
  session.agent = Agent::claude;
  session.nativeID = metadata.sessionID.value_or(std::string(lastPathComponent(file.path)));
  session.title = metadata.title.value_or("");
  if (session.title.empty())
    session.title = untitled;
  session.cwd = metadata.cwd.value_or("");
  session.projectPath = roots.root(metadata.originCwd.value_or(session.cwd));
  session.model = metadata.model.value_or("");
  session.activity = activity;
  session.status = derived.status;
  session.detail = std::move(derived.detail);
  session.lastMessage = end.lastText;
  if (metadata.cliSessionID) {
    session.openURL = "claude://resume?session=" + *metadata.cliSessionID;
    session.sourceIDs = {sessionKey(Agent::claude, *metadata.cliSessionID)};
  }
  session.transcriptPath = std::move(transcript);
  session.startedAt = metadata.createdAt;
  return session;
}

std::vector<AgentSession> ClaudeProvider::terminalSessions(
    Date since, const std::unordered_set<std::string>& desktopIDs, ProjectRootResolver& roots) {
  std::vector<AgentSession> sessions;
  for (const std::string& path : recentTranscripts(since)) {
    std::string_view sessionID = lastPathComponent(path);
    sessionID.remove_suffix(transcriptSuffix.size());
    if (desktopIDs.contains(std::string(sessionID)))
      continue;
    auto session = terminalSession(path, sessionID, since, roots);
    if (session)
      sessions.push_back(std::move(*session));
  }
  return sessions;
}

std::optional<AgentSession> ClaudeProvider::terminalSession(const std::string& path,
                                                            std::string_view sessionID,
                                                            Date since,
                                                            ProjectRootResolver& roots) {
  const auto stamp = fileStamp(path);
  if (!stamp || stamp->modificationDate() < since)
    return std::nullopt;
  const TranscriptHead& begin = head(path, *stamp);
  // Other entry points belong to the desktop application or to tools that start the client.
  if (begin.entrypoint != "cli" || !begin.cwd)
    return std::nullopt;
  const TranscriptTail& end = tail(path, *stamp);
  if (!end.lastMessageDate || *end.lastMessageDate < since)
    return std::nullopt;
  auto derived = status(false, end, end.permissionMode, elapsed(*end.lastMessageDate, now_()));

  AgentSession session;
  session.agent = Agent::claude;
  session.nativeID = sessionID;
  session.title = end.title           ? *end.title
                  : begin.firstPrompt ? *begin.firstPrompt
                                      : std::string(lastPathComponent(*begin.cwd));
  session.cwd = *begin.cwd;
  session.projectPath = roots.root(*begin.cwd);
  session.model = end.model.value_or("");
  session.activity = *end.lastMessageDate;
  session.status = derived.status;
  session.detail = std::move(derived.detail);
  session.lastMessage = end.lastText;
  session.sourceIDs = {sessionKey(Agent::claude, sessionID)};
  session.launcher = begin.entrypoint;
  session.transcriptPath = path;
  session.startedAt = begin.startedAt;
  return session;
}

// The transcripts written to since then. Exactly two levels are looked at: what lies deeper belongs
// to subagents. The scan touches every transcript there is, hence its interval.
const std::vector<std::string>& ClaudeProvider::recentTranscripts(Date since) {
  const Date now = now_();
  if (lastScan_ && lastScanCutoff_ == since) {
    const Seconds age = elapsed(*lastScan_, now);
    // A clock set back must not stop the scans until it has caught up.
    if (age >= Seconds(0) && age < scanInterval)
      return recentCache_;
  }
  lastScan_ = now;
  lastScanCutoff_ = since;
  recentCache_.clear();
  for (const std::string& project : directoryEntries(directories_.projects)) {
    const std::string directory = joinedPath(directories_.projects, project);
    for (const NamedStamp& file : filesInDirectory(directory, transcriptSuffix)) {
      if (file.stamp.modificationDate() >= since)
        recentCache_.push_back(joinedPath(directory, file.name));
    }
  }
  std::sort(recentCache_.begin(), recentCache_.end());
  return recentCache_;
}

std::optional<std::string> ClaudeProvider::transcriptPath(const std::string& id,
                                                          const std::string& cwd,
                                                          ProjectNames& projectNames) {
  if (!isFileName(id))
    return std::nullopt;
  const auto known = transcriptCache_.find(id);
  if (known != transcriptCache_.end() && fileExists(known->second))
    return known->second;
  const std::string name = id + std::string(transcriptSuffix);
  const auto existsIn = [&](const std::string& project) {
    std::string path = joinedPath(joinedPath(directories_.projects, project), name);
    const bool exists = fileExists(path);
    if (exists)
      transcriptCache_[id] = std::move(path);
    return exists;
  };
  if (!cwd.empty() && existsIn(projectDirectoryName(cwd)))
    return transcriptCache_[id];
  if (!projectNames)
    projectNames = directoryEntries(directories_.projects);
  if (std::any_of(projectNames->begin(), projectNames->end(), existsIn))
    return transcriptCache_[id];
  return std::nullopt;
}

const std::optional<ClaudeDesktopMetadata>& ClaudeProvider::metadata(const File& file) {
  if (const auto* known = metaCache_.find(file.path, file.stamp))
    return *known;
  std::optional<ClaudeDesktopMetadata> parsed;
  if (const auto text = readWholeFile(file.path, largeBudget)) {
    parsed = parseClaudeDesktopMetadata(reader_, *text);
  }
  return metaCache_.store(file.path, file.stamp, std::move(parsed));
}

const TranscriptTail& ClaudeProvider::tail(const std::string& path, const FileStamp& stamp) {
  if (const auto* known = tailCache_.find(path, stamp))
    return *known;
  return tailCache_.store(path, stamp, readTail(path));
}

const TranscriptHead& ClaudeProvider::head(const std::string& path, const FileStamp& stamp) {
  if (const auto* known = headCache_.find(path, stamp))
    return *known;
  return headCache_.store(path, stamp, readHead(path));
}

TranscriptTail ClaudeProvider::readTail(const std::string& path) {
  auto lines = tailJSONLines(path, tailBudget, buffer_);
  auto tail = parseTranscriptTail(reader_, lines);
  if (tail.lastMessageDate || lines.coversFile())
    return tail;
  // One huge tool result can fill the small window.
  auto more = tailJSONLines(path, largeBudget, buffer_);
  return parseTranscriptTail(reader_, more);
}

TranscriptHead ClaudeProvider::readHead(const std::string& path) {
  auto lines = headJSONLines(path, headBudget, buffer_);
  auto head = parseTranscriptHead(reader_, lines);
  if ((head.entrypoint && head.cwd) || lines.coversFile())
    return head;
  auto more = headJSONLines(path, largeBudget, buffer_);
  return parseTranscriptHead(reader_, more);
}

}  // namespace tessivane
