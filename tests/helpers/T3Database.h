#pragma once

// A database as T3 Code leaves it: the real tables and indexes that a watcher meets. See
// `FixtureDatabase`.

#include <string>

#include "helpers/FixtureDatabase.h"

namespace tessivane {

/// Migration 54, the last of the older schema, or 61, where both schemas are in the file.
enum class T3Generation { legacy, orchestration };

class T3Database final {
 public:
  T3Database(const std::string& path, T3Generation generation);

  /// As `FixtureDatabase` does. "v2_" stands for "orchestration_v2_projection_" in statements and
  /// names of tables.
  void execute(std::string sql) const;
  void insert(std::string table, json row) const;
  void close() { db_.close(); }

 private:
  FixtureDatabase db_;
};

}  // namespace tessivane
