#pragma once

// Makes a statement run on any state of a T3 Code database. Its tables and columns came with dozens
// of migrations, of which preview builds ran other ones under the same numbers, so that only the
// tables themselves tell what is there. Pure but for `t3Columns`, which asks the database.

#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <vector>

#include "support/ReadOnlyDatabase.h"

namespace tessivane {

/// A column that a statement reads.
struct T3Column {
  std::string_view name = {};
  std::string_view standIn = "null";  ///< SQL for its value where the column does not exist
  bool holdsJSON = false;             ///< and the statement takes it for granted that it does
};

/// A table that a statement reads, with all the columns that it reads there.
struct T3Table {
  std::string_view name = {};
  std::vector<T3Column> columns = {};
};

/// Columns by table.
using T3Columns = std::map<std::string, std::set<std::string>>;

/// The tables of the older schema ("projection_threads") that the statement on it reads.
const std::vector<T3Table>& t3LegacyTables();

/// What the statements on the newer schema ("orchestration_v2_projection_threads") read that some
/// builds may lack.
const std::vector<T3Table>& t3OrchestrationTables();

/// The names of all tables. On failure `db` has the error.
std::set<std::string> t3TableNames(ReadOnlyDatabase& db);

/// Which columns the given tables have in this database; nothing on failure.
std::optional<T3Columns> t3Columns(ReadOnlyDatabase& db, const std::vector<T3Table>& tables);

/// Whether JSON that does not parse ends the statement with an error or counts as absent.
enum class T3BadJSON { fails, isAbsent };

/// `statement` as it is where nothing is missing. Else missing tables are empty in it and missing
/// columns have their stand-ins. The statement has no semicolon at its end.
std::string t3FittedStatement(std::string_view statement,
                              const std::vector<T3Table>& tables,
                              const T3Columns& columns,
                              T3BadJSON badJSON = T3BadJSON::fails);

}  // namespace tessivane
