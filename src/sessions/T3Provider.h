#pragma once

// The threads of T3 Code, a front end that drives Claude Code and Codex, from its own database. The
// schema has two generations; each pass looks which one the file has. Only ever read.
//
// Owned by `SessionDiscovery` and used inside one discovery pass at a time; it has no lock. Tables,
// columns and words are those of T3 Code's migrations 1 to 61.

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "sessions/AgentSession.h"
#include "sessions/ProviderCache.h"
#include "sessions/SessionProvider.h"
#include "support/Date.h"
#include "support/ReadOnlyDatabase.h"

namespace tessivane {

class T3Provider final : public SessionProvider {
 public:
  /// T3 thread ids by the session key "{agent}:{native id}" that they drive.
  using Owners = std::map<std::string, std::set<std::string>>;

  /// Of `dbPaths` the first that exists is read.
  T3Provider(std::vector<std::string> dbPaths, Clock now);

  /// The threads that are neither archived nor deleted, the latest event first. One with something
  /// open for the person is listed however old it is (newer schema; the statement on the older one
  /// stops at `since`). No database is no problem. Waits at most two seconds for a writer's lock.
  std::vector<AgentSession> sessions(Date since, ProjectRootResolver& roots) override;

  /// Who drives which native session, as of the last pass. The older schema does not tell.
  const Owners& owners() const { return owners_; }

  /// What went wrong in the last pass; nothing if it went well.
  const std::optional<std::string>& diagnostic() const { return diagnostic_; }

  /// The id of the T3 environment, escaped for a link: the text of the file "environment-id" beside
  /// the database (a UUID since T3's first server start). Nothing when there is none.
  static std::optional<std::string> escapedEnvironment(const std::string& dbPath);

  /// The link that shows the thread in T3: "t3code://threads/{environment}/{thread}". Nothing for
  /// an id that is no UTF-8. Ids may hold escapes already; these are escaped once more.
  static std::optional<std::string> threadURL(std::string_view thread,
                                              std::string_view escapedEnvironment);

  /// The statement in the resource "{name}.sql"; empty for a name there is none of.
  static std::string_view sql(std::string_view name);

 private:
  struct Pass {
    Date since;
    Date now;
    ProjectRootResolver& roots;
  };

  std::vector<DatabaseRow> rows(ReadOnlyDatabase& db, const std::string& since);
  std::vector<DatabaseRow> legacyRows(ReadOnlyDatabase& db, const std::string& since);
  std::vector<DatabaseRow> orchestrationRows(ReadOnlyDatabase& db, const std::string& since);
  void readOwners(const std::vector<DatabaseRow>& identities);

  std::vector<AgentSession> finish(const std::vector<DatabaseRow>& rows, const Pass& pass);
  std::optional<AgentSession> makeSession(const DatabaseRow& row, const Pass& pass);
  std::optional<Date> date(const DatabaseRow& row, std::string_view column);
  std::optional<Date> activity(const DatabaseRow& row);
  std::string lastMessage(const std::string& thread, const std::string* raw);

  std::vector<std::string> dbPaths_;
  Clock now_;
  Owners owners_;
  std::optional<std::string> diagnostic_;
  std::optional<std::string> environment_;
  DatabaseCopyMemo copies_;
  ProviderCacheDates dates_;
  ProviderCacheMemo<ProviderCacheTextStamp, std::string> lastTexts_;
};

}  // namespace tessivane
