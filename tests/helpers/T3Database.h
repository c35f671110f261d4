#pragma once

// Builds a database as T3 Code leaves it: the real tables and indexes that a watcher meets, in
// write-ahead-log mode, held open like a running server's until `close`. A failed statement throws,
// so that a test cannot go on with half a fixture.

#include <string>
#include <string_view>

#include <nlohmann/json.hpp>

struct sqlite3;

namespace tessivane {

using nlohmann::json;

/// Migration 54, the last of the older schema, or 61, where both schemas are in the file.
enum class T3Generation { legacy, orchestration };

class T3Database final {
 public:
  T3Database(const std::string& path, T3Generation generation);
  T3Database(const T3Database&) = delete;
  T3Database& operator=(const T3Database&) = delete;
  ~T3Database();

  /// Runs statements. "v2_" in them stands for "orchestration_v2_projection_".
  void execute(std::string sql) const;
  /// Adds a row given by column. Objects and arrays become JSON text; required columns that are not
  /// given become "" or, where they hold JSON, "{}". Table names as in `execute`.
  void insert(const std::string& table, json row) const;
  /// Closes cleanly, which takes the companion files away.
  void close();

 private:
  void fillRequired(const std::string& table, json& row) const;

  sqlite3* db_ = nullptr;
};

}  // namespace tessivane
