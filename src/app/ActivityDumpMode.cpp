#include "app/ActivityDumpMode.h"

#include <fmt/format.h>

#include "backend/BackendEventRow.h"
#include "backend/BackendEventStore.h"
#include "platform/SystemClock.h"
#include "sessions/SessionDump.h"
#include "support/Files.h"
#include "support/ReadOnlyDatabase.h"

namespace tessivane {

namespace {

std::string column(const DatabaseRow& row, std::string_view name) {
  const std::string* text = row.text(name);
  return text == nullptr ? std::string() : dumpColumn(*text);
}

// Empty for a row that another version has written.
std::string line(const DatabaseRow& row) {
  const std::string* kindText = row.text("kind");
  const auto kind = activityKind(kindText == nullptr ? std::string_view() : *kindText);
  const auto date = dateFromSeconds(row.real("ts").value_or(0));
  const std::string* root = row.text("root");
  if (!kind || !date || root == nullptr)
    return {};
  // Where an event has no ref of its own, the column holds what tells it from others.
  const bool hasRef = *kind != ActivityKind::needsYou && *kind != ActivityKind::finished;
  return fmt::format("{}\t{}\t{}\t{}\t{}\t{}\n",
                     isoText(*date),
                     rawValue(*kind),
                     dumpColumn(BackendEventRow::projectName(*root)),
                     column(row, "session_title"),
                     hasRef ? column(row, "ref") : "",
                     column(row, "title"));
}

}  // namespace

int dumpActivity(const std::string& path, Date since, std::FILE* output, std::FILE* errors) {
  if (!fileExists(path))
    return 0;
  const auto db = ReadOnlyDatabase::open(path);
  const auto rows = db == nullptr
                        ? std::vector<DatabaseRow>()
                        : db->query("select * from events where ts >= cast(? as real) order by ts",
                                    {fmt::format("{:.6f}", secondsSince1970(since))});
  for (const DatabaseRow& row : rows)
    std::fputs(line(row).c_str(), output);
  const bool isWritten = std::fflush(output) == 0 && std::ferror(output) == 0;
  if (db != nullptr && !db->lastError())
    return isWritten ? 0 : 1;
  std::fprintf(errors,
               "tessivane: cannot read %s: %s\n",
               path.c_str(),
               db == nullptr ? "it is no database" : db->lastError()->c_str());
  return 1;
}

int runActivityDump(ActivityRange range, std::FILE* output, std::FILE* errors) {
  return dumpActivity(
      BackendEventStore::defaultPath(), shifted(systemNow(), -span(range)), output, errors);
}

}  // namespace tessivane
