#pragma once

// The sessions of Claude Code: those of its desktop application, told by metadata files and
// transcripts, and those of its terminal client, told by transcripts alone. Files are read within
// fixed budgets, never whole, and again only when they changed. Used inside discovery passes only,
// and owned by `SessionDiscovery`; nothing here ever reports a problem.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_map>
#include <unordered_set>
#include <vector>

#include "sessions/ClaudeDesktopMetadata.h"
#include "sessions/ProviderCache.h"
#include "sessions/SessionProvider.h"
#include "sessions/TranscriptHead.h"
#include "sessions/TranscriptTail.h"
#include "support/JSON.h"
#include "support/JSONLines.h"

namespace tessivane {

class ClaudeProvider final : public SessionProvider {
 public:
  struct Directories {
    /// Where the desktop application may keep its metadata, "local_….json" at any depth. The first
    /// that exists is read.
    std::vector<std::string> sessions = {};
    /// One directory per project, and in each "{session id}.jsonl" transcripts.
    std::string projects = {};
  };

  ClaudeProvider(Directories directories, Clock now);

  /// The desktop sessions, followed by the terminal ones. A new terminal session can take up to
  /// `scanInterval` to show.
  std::vector<AgentSession> sessions(Date since, ProjectRootResolver& roots) override;

  /// The status of a session whose transcript ends in `tail` and whose last activity is `age` ago.
  /// No transcript says whether a called tool runs or waits for the person's approval (seen up to
  /// 2.1.330), so age and permission mode decide.
  static StatusAndDetail status(bool awaitingPerson,
                                const TranscriptTail& tail,
                                const std::optional<std::string>& permissionMode,
                                Seconds age);

  static constexpr Seconds scanInterval{30};

 private:
  struct File {
    std::string path;
    FileStamp stamp;
  };
  /// The project directories, listed at most once per pass and only if one is looked for.
  using ProjectNames = std::optional<std::vector<std::string>>;

  std::vector<AgentSession> desktopSessions(Date since,
                                            ProjectRootResolver& roots,
                                            std::unordered_set<std::string>& desktopIDs);
  std::optional<AgentSession> desktopSession(const File& file,
                                             const ClaudeDesktopMetadata& metadata,
                                             Date since,
                                             ProjectNames& projectNames,
                                             ProjectRootResolver& roots);
  std::vector<AgentSession> terminalSessions(Date since,
                                             const std::unordered_set<std::string>& desktopIDs,
                                             ProjectRootResolver& roots);
  std::optional<AgentSession> terminalSession(const std::string& path,
                                              std::string_view sessionID,
                                              Date since,
                                              ProjectRootResolver& roots);

  const std::vector<std::string>& recentTranscripts(Date since);
  std::optional<std::string> transcriptPath(const std::string& id,
                                            const std::string& cwd,
                                            ProjectNames& projectNames);
  const std::optional<ClaudeDesktopMetadata>& metadata(const File& file);
  const TranscriptTail& tail(const std::string& path, const FileStamp& stamp);
  const TranscriptHead& head(const std::string& path, const FileStamp& stamp);
  TranscriptTail readTail(const std::string& path);
  TranscriptHead readHead(const std::string& path);

  Directories directories_;
  Clock now_;

  std::unordered_map<std::string, std::string> transcriptCache_;  // session id to path
  FileDerivedCache<std::optional<ClaudeDesktopMetadata>> metaCache_;
  FileDerivedCache<TranscriptTail> tailCache_;
  FileDerivedCache<TranscriptHead> headCache_;
  std::vector<std::string> recentCache_;
  std::optional<Date> lastScan_;
  std::optional<Date> lastScanCutoff_;

  JSONReader reader_;
  LineBuffer buffer_;
};

}  // namespace tessivane
