#include "support/DatabaseRow.h"

#include <algorithm>
#include <utility>

#include <sqlite3.h>

namespace tessivane {

namespace {

std::shared_ptr<const DatabaseRow::Columns> columnNames(sqlite3_stmt* statement) {
  auto columns = std::make_shared<DatabaseRow::Columns>();
  const int count = sqlite3_column_count(statement);
  for (int i = 0; i < count; ++i) {
    const char* name = sqlite3_column_name(statement, i);
    columns->emplace_back(name == nullptr ? "" : name);  // null: out of memory
  }
  return columns;
}

std::optional<std::string_view> columnText(sqlite3_stmt* statement, int column) {
  const auto* text = reinterpret_cast<const char*>(sqlite3_column_text(statement, column));
  if (text == nullptr)
    return std::nullopt;  // out of memory
  return std::string_view(text, static_cast<std::size_t>(sqlite3_column_bytes(statement, column)));
}

std::optional<DatabaseValue> columnValue(sqlite3_stmt* statement, int column) {
  switch (sqlite3_column_type(statement, column)) {
    case SQLITE_INTEGER:
      return sqlite3_column_int64(statement, column);
    case SQLITE_FLOAT:
      return sqlite3_column_double(statement, column);
    case SQLITE_TEXT:
      if (const auto text = columnText(statement, column))
        return std::string(*text);
      return std::nullopt;
    default:
      return std::nullopt;
  }
}

template <typename T>
std::optional<T> valueOf(const DatabaseValue* value) {
  const T* found = value == nullptr ? nullptr : std::get_if<T>(value);
  if (found == nullptr)
    return std::nullopt;
  return *found;
}

}  // namespace

DatabaseRow::DatabaseRow(std::shared_ptr<const Columns> columns,
                         std::vector<std::optional<DatabaseValue>> values)
    : columns_(std::move(columns)), values_(std::move(values)) {}

const DatabaseValue* DatabaseRow::value(std::string_view column) const {
  const auto found = std::find(columns_->begin(), columns_->end(), column);
  if (found == columns_->end())
    return nullptr;
  const auto& value = values_[static_cast<std::size_t>(found - columns_->begin())];
  return value ? &*value : nullptr;
}

const std::string* DatabaseRow::text(std::string_view column) const {
  const DatabaseValue* found = value(column);
  return found == nullptr ? nullptr : std::get_if<std::string>(found);
}

std::optional<std::int64_t> DatabaseRow::integer(std::string_view column) const {
  return valueOf<std::int64_t>(value(column));
}

std::optional<double> DatabaseRow::real(std::string_view column) const {
  return valueOf<double>(value(column));
}

std::optional<int> StatementRow::index(std::string_view column, int type) const {
  const auto found = std::find(columns_.begin(), columns_.end(), column);
  const auto index = static_cast<int>(found - columns_.begin());
  if (found == columns_.end() || sqlite3_column_type(statement_, index) != type)
    return std::nullopt;
  return index;
}

std::optional<std::string_view> StatementRow::text(std::string_view column) const {
  const auto found = index(column, SQLITE_TEXT);
  return found ? columnText(statement_, *found) : std::nullopt;
}

std::optional<std::int64_t> StatementRow::integer(std::string_view column) const {
  const auto found = index(column, SQLITE_INTEGER);
  if (!found)
    return std::nullopt;
  return sqlite3_column_int64(statement_, *found);
}

std::optional<double> StatementRow::real(std::string_view column) const {
  const auto found = index(column, SQLITE_FLOAT);
  if (!found)
    return std::nullopt;
  return sqlite3_column_double(statement_, *found);
}

int stepToRows(sqlite3_stmt* statement, std::vector<DatabaseRow>& rows) {
  std::shared_ptr<const DatabaseRow::Columns> columns;
  int result = SQLITE_ROW;
  while ((result = sqlite3_step(statement)) == SQLITE_ROW) {
    if (!columns)
      columns = columnNames(statement);
    std::vector<std::optional<DatabaseValue>> values(columns->size());
    for (std::size_t i = 0; i < values.size(); ++i)
      values[i] = columnValue(statement, static_cast<int>(i));
    rows.emplace_back(columns, std::move(values));
  }
  return result;
}

int stepThroughRows(sqlite3_stmt* statement, FunctionRef<void(const StatementRow&)> visitor) {
  std::shared_ptr<const DatabaseRow::Columns> columns;
  int result = SQLITE_ROW;
  while ((result = sqlite3_step(statement)) == SQLITE_ROW) {
    if (!columns)
      columns = columnNames(statement);
    visitor(StatementRow(statement, *columns));
  }
  return result;
}

}  // namespace tessivane
