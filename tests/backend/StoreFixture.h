#pragma once

// An event store in a directory of its own, and a look at all it holds.

#include <filesystem>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "backend/BackendEventStore.h"
#include "helpers/TempHome.h"

namespace tessivane {

inline const Date noon = *isoDate("2026-10-05T12:00:00Z");

/// All rows of all tables, one a line. Two equal texts mean equal contents.
inline std::string contents(BackendDatabase& db) {
  std::string text;
  for (const char* sql :
       {"select quote(kind) || quote(root) || quote(ref) || quote(ts) || quote(title) || "
        "quote(detail) || quote(branch) || quote(session_id) || quote(session_title) || "
        "quote(owner) || quote(engine) as line from events order by 1",
        "select quote(root) || quote(session_id) || quote(minute) || quote(files) || "
        "quote(paths) as line from edit_minutes order by 1",
        "select quote(key) || quote(ts) as line from seen_items order by 1",
        "select quote(path) || quote(inode) || quote(offset) || quote(mtime) || quote(seen) "
        "as line from cursors order by 1",
        "select quote(key) || quote(value) as line from kv order by 1"}) {
    for (const DatabaseRow& row : db.query(sql))
      text += *row.text("line") + "\n";
    text += "--\n";
  }
  return text;
}

/// A commit in the project "/p".
inline ActivityEvent commitEvent(const std::string& ref, Date date = noon) {
  return {.id = "commit:/p:" + ref,
          .kind = ActivityKind::commit,
          .date = date,
          .projectRoot = "/p",
          .projectName = "p",
          .ref = ref,
          .title = "Commit " + ref};
}

inline std::vector<std::string> titlesOf(const std::vector<ActivityEvent>& events) {
  std::vector<std::string> all;
  all.reserve(events.size());
  for (const ActivityEvent& event : events)
    all.push_back(event.title);
  return all;
}
inline std::vector<std::string> kindsAndTitlesOf(const std::vector<ActivityEvent>& events) {
  std::vector<std::string> all;
  all.reserve(events.size());
  for (const ActivityEvent& event : events)
    all.push_back(std::string(rawValue(event.kind)) + " " + event.title);
  return all;
}
/// How many edits the minutes hold.
inline std::int64_t filesOf(std::span<const EditBucket> buckets) {
  std::int64_t sum = 0;
  for (const EditBucket& bucket : buckets)
    sum += bucket.files;
  return sum;
}

class StoreTest : public testing::Test {
 protected:
  /// The store, opened by the first call. `close` ends it, the next call opens the file anew.
  BackendEventStore& store() {
    if (!store_)
      store_ = BackendEventStore::open(path_);
    return *store_;
  }
  void close() { store_.reset(); }
  void beginAnew() {
    close();
    std::filesystem::remove_all(home_.path("data"));
  }
  /// The database may grow by so many pages.
  void leavePages(std::int64_t spare) {
    const auto pages = store().db().query("pragma page_count").front().integer("page_count");
    store().db().query("pragma max_page_count = " + std::to_string(*pages + spare));
  }

  TempHome home_;
  std::string path_ = home_.path("data/Tessivane/activity.sqlite");

 private:
  std::unique_ptr<BackendEventStore> store_;
};

}  // namespace tessivane
