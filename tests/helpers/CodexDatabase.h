#pragma once

// A state database with the columns that one version of Codex gives it. See `FixtureDatabase`.

#include <optional>
#include <string>

#include "helpers/FixtureDatabase.h"
#include "support/Date.h"

namespace tessivane {

enum class CodexVersion { v120 = 120, v142 = 142, v169 = 169 };

/// One row. What the version has no column for is left out.
struct CodexThread {
  std::string id = {};
  std::string rolloutPath = {};
  Date recency = {};  ///< start of the last turn; to the second in 0.120
  std::string title = {};
  std::optional<std::string> name = {};
  std::string cwd = {};
  std::string source = "cli";
  std::optional<std::string> threadSource = {};
  std::optional<std::string> agentNickname = {};
  std::optional<std::string> originator = {};
  std::optional<Date> updated = {};  ///< `recency` if not given
  std::optional<Date> created = {};  ///< `recency` if not given
  bool archived = false;
};

class CodexDatabase final {
 public:
  /// Makes the file, its directory and the table of threads.
  explicit CodexDatabase(const std::string& path, CodexVersion version = CodexVersion::v169);
  void insert(const CodexThread& thread);
  void execute(const std::string& sql) { db_.execute(sql); }

 private:
  FixtureDatabase db_;
  CodexVersion version_;
};

}  // namespace tessivane
