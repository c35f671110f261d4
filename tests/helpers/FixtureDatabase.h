#pragma once

// A SQLite database that a test fills, in write-ahead mode and held open like a running program's
// until `close`. Throws when SQLite refuses something, so that no test goes on with half a fixture.

#include <string>

#include <nlohmann/json.hpp>

struct sqlite3;

namespace tessivane {

using nlohmann::json;

class FixtureDatabase final {
 public:
  /// Makes the file and its directory where they are not there.
  explicit FixtureDatabase(const std::string& path);
  FixtureDatabase(const FixtureDatabase&) = delete;
  FixtureDatabase& operator=(const FixtureDatabase&) = delete;
  ~FixtureDatabase() { close(); }

  void execute(const std::string& sql) const;
  /// Adds a row given by column. Objects and arrays become JSON text; required columns that are not
  /// given become "" or, where they hold JSON, "{}".
  void insert(const std::string& table, json row) const;
  /// Closes cleanly, which takes the companion files away.
  void close();

 private:
  void fillRequired(const std::string& table, json& row) const;
  void run(const std::string& sql, int (*visit)(void*, int, char**, char**), void* target) const;

  sqlite3* db_ = nullptr;
};

}  // namespace tessivane
