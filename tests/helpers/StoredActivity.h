#pragma once

// What stands in the program's event database, as another process sees it while the program runs or
// after its end. Read with SQLite itself and not with the program's own code.

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <tuple>
#include <vector>

namespace tessivane {

struct StoredEvent {
  std::string kind = {};
  std::string root = {};
  std::string ref = {};
  std::string title = {};
  std::optional<std::string> detail = {};
  std::optional<std::string> branch = {};
  std::optional<std::string> sessionID = {};
  double ts = 0;  ///< seconds since 1970

  std::string token() const { return kind + ":" + root + ":" + ref; }
};

struct StoredActivity {
  /// Root, session and minute.
  using Minute = std::tuple<std::string, std::string, std::int64_t>;

  std::vector<StoredEvent> events = {};
  std::map<Minute, std::int64_t> edits = {};
  std::set<std::string> seen = {};  ///< keys of what was counted

  /// How far a file was read, and which file that was.
  struct Cursor {
    std::uint64_t inode = 0;
    std::uint64_t offset = 0;
  };
  std::map<std::string, Cursor> cursors = {};  ///< by path

  /// Nothing when the database is not there yet, or cannot be read now.
  static std::optional<StoredActivity> read(const std::string& path);
  /// What SQLite finds wrong with the file; "ok" when nothing.
  static std::string integrity(const std::string& path);
};

}  // namespace tessivane
