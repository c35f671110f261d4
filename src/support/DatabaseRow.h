#pragma once

// Rows of SQLite results: as values that outlive their statement and are safe on every thread, and
// as views of the row at which a statement stands. Views spare the copies where rows are many.

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <variant>
#include <vector>

#include "support/FunctionRef.h"

struct sqlite3_stmt;

namespace tessivane {

using DatabaseValue = std::variant<std::int64_t, double, std::string>;

/// One row of a result, by column name. A null or a blob is as absent as a column that the
/// statement does not have.
class DatabaseRow final {
 public:
  using Columns = std::vector<std::string>;

  DatabaseRow(std::shared_ptr<const Columns> columns,
              std::vector<std::optional<DatabaseValue>> values);

  /// The value of that column, nothing if absent. The pointer is good as long as the row.
  const DatabaseValue* value(std::string_view column) const;
  /// The value when it is of that type, else nothing. An integer column is no text and no real.
  const std::string* text(std::string_view column) const;
  std::optional<std::int64_t> integer(std::string_view column) const;
  std::optional<double> real(std::string_view column) const;

 private:
  std::shared_ptr<const Columns> columns_;
  std::vector<std::optional<DatabaseValue>> values_;
};

/// The row at which a statement stands, by column name like a `DatabaseRow`. Good only inside the
/// call that hands it out.
class StatementRow final {
 public:
  StatementRow(sqlite3_stmt* statement, const DatabaseRow::Columns& columns)
      : statement_(statement), columns_(columns) {}

  std::optional<std::string_view> text(std::string_view column) const;
  std::optional<std::int64_t> integer(std::string_view column) const;
  std::optional<double> real(std::string_view column) const;

 private:
  std::optional<int> index(std::string_view column, int type) const;

  sqlite3_stmt* statement_;
  const DatabaseRow::Columns& columns_;
};

/// Steps through a prepared statement and returns the result that ended it: SQLITE_DONE when it was
/// its last row. Columns are taken as they are after the first step, as that may prepare the
/// statement anew for a changed schema.
int stepToRows(sqlite3_stmt* statement, std::vector<DatabaseRow>& rows);
int stepThroughRows(sqlite3_stmt* statement, FunctionRef<void(const StatementRow&)> visitor);

}  // namespace tessivane
