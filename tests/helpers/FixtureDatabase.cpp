#include "helpers/FixtureDatabase.h"

#include <filesystem>
#include <stdexcept>
#include <utility>

#include <fmt/format.h>
#include <sqlite3.h>

namespace tessivane {

namespace {

std::string literal(const json& value) {
  if (value.is_null() || value.is_number())
    return value.dump();
  char* quoted = sqlite3_mprintf(
      "%Q", value.is_string() ? value.get<std::string>().c_str() : value.dump().c_str());
  std::string result(quoted);
  sqlite3_free(quoted);
  return result;
}

}  // namespace

FixtureDatabase::FixtureDatabase(const std::string& path) {
  std::filesystem::create_directories(std::filesystem::path(path).parent_path());
  if (sqlite3_open(path.c_str(), &db_) != SQLITE_OK)
    throw std::runtime_error("cannot open " + path);
  execute("pragma synchronous = off; pragma journal_mode = wal");
}

void FixtureDatabase::close() {
  sqlite3_close(std::exchange(db_, nullptr));
}

void FixtureDatabase::execute(const std::string& sql) const {
  run(sql, nullptr, nullptr);
}

void FixtureDatabase::run(const std::string& sql,
                          int (*visit)(void*, int, char**, char**),
                          void* target) const {
  if (sqlite3_exec(db_, sql.c_str(), visit, target, nullptr) != SQLITE_OK)
    throw std::runtime_error(fmt::format("{}\n{}", sqlite3_errmsg(db_), sql));
}

void FixtureDatabase::insert(const std::string& table, json row) const {
  fillRequired(table, row);
  std::string columns;
  std::string values;
  for (const auto& [column, value] : row.items()) {
    columns += (columns.empty() ? "" : ", ") + column;
    values += (values.empty() ? "" : ", ") + literal(value);
  }
  execute(fmt::format("insert into {} ({}) values ({})", table, columns, values));
}

void FixtureDatabase::fillRequired(const std::string& table, json& row) const {
  const auto addIfMissing = [](void* target, int, char** values, char**) {
    const std::string column = *values;
    json& fields = *static_cast<json*>(target);
    if (!fields.contains(column))
      fields[column] = column.ends_with("_json") ? "{}" : "";
    return 0;
  };
  run(fmt::format("select name from pragma_table_info('{}') "
                  "where \"notnull\" and dflt_value is null",
                  table),
      addIfMissing,
      &row);
}

}  // namespace tessivane
