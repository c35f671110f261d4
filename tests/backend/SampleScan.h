#pragma once

// A scan as the activity store runs it, over files that are only made up: each item tells the store
// something, and a file's cursor moves once all of its items are told. What a whole pass stores
// does not depend on how often it was begun.

#include <optional>
#include <string>

#include "StoreFixture.h"
#include "backend/BackendTransaction.h"

namespace tessivane {

struct SampleScan {
  enum class Bracket { transaction, none };

  int files = 4;
  std::uint64_t items = 12;
  Bracket bracket = Bracket::transaction;

  /// One pass over all files. True when everything was stored.
  bool run(BackendEventStore& store) const {
    std::optional<BackendTransaction> transaction;
    if (bracket == Bracket::transaction)
      transaction.emplace(store);
    const auto failures = store.db().failures();
    const auto isWhole = [&] { return store.db().failures() == failures; };
    for (int file = 0; file < files; ++file) {
      const std::string path = "/t/" + std::to_string(file);
      const auto cursor = store.cursor(path);
      for (auto item = cursor ? cursor->offset : 0; item < items; ++item)
        tell(store, path, item);
      if (isWhole())
        store.setCursor({.inode = 1, .offset = items, .mtime = 2}, path, noon);
    }
    if (isWhole())
      store.setValue("t3.cursor", "read to the end");
    store.prune(noon);
    return isWhole();
  }

  static void tell(BackendEventStore& store, const std::string& path, std::uint64_t item) {
    const std::string name = path + "-" + std::to_string(item);
    const Date date = noon - std::chrono::seconds(20 * item);
    const std::string number = std::to_string(item);
    if (item % 3 == 0) {
      store.addEdit({.key = name, .root = path, .date = date, .paths = {name, "shared"}});
    } else if (item % 3 == 1) {
      store.insert(commitEvent(name, date));
    } else {
      // Told by a transcript, then by GitHub under two roots, which leaves one row.
      ActivityEvent opened = commitEvent(number, date);
      opened.kind = ActivityKind::prOpened;
      opened.projectRoot = path;
      store.insert(opened);
      opened.projectRoot = "github:me" + path;
      opened.detail = "me" + path;
      if (!store.hasPullRequest(ActivityKind::prOpened, number, path, "me" + path))
        store.insert(opened);
      store.reconcilePR({.kind = ActivityKind::prOpened,
                         .number = number,
                         .slug = "me" + path,
                         .root = path,
                         .date = date,
                         .title = "From GitHub"});
    }
  }
};

/// What the store holds after one pass that nothing disturbed.
inline std::string undisturbed(const SampleScan& scan) {
  const TempHome home;
  const auto store = BackendEventStore::open(home.path("activity.sqlite"));
  EXPECT_TRUE(scan.run(*store)) << store->db().lastError().value_or("");
  return contents(store->db());
}

}  // namespace tessivane
