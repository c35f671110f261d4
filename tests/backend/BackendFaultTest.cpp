// An event database that is locked, full, read-only, broken or newer than the program, or whose
// program dies: nothing hangs or crashes, and once the fault has passed the next pass stores what
// this one could not.

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <functional>
#include <optional>
#include <random>

#include <sqlite3.h>

#include "StoreFixture.h"
#include "backend/BackendTransaction.h"
#include "helpers/DatabaseOwner.h"
#include "support/Files.h"

namespace tessivane {
namespace {

namespace fs = std::filesystem;

// A scan as the activity store runs it, over files that are only made up: each item tells the store
// something, and a file's cursor moves once all of its items are told. What a whole pass stores
// does not depend on how often it was begun.
struct SampleScan {
  int files = 4;
  std::uint64_t items = 12;
  bool isBracketed = true;  // by a transaction

  /// One pass over all files. True when everything was stored.
  bool run(BackendEventStore& store) const {
    std::optional<BackendTransaction> transaction;
    if (isBracketed)
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
std::string undisturbed(const SampleScan& scan) {
  const TempHome home;
  const auto store = BackendEventStore::open(home.path("activity.sqlite"));
  EXPECT_TRUE(scan.run(*store)) << store->db().lastError().value_or("");
  return contents(store->db());
}

std::optional<std::int64_t> busyTimeout(BackendEventStore& store) {
  return store.db().query("pragma busy_timeout").at(0).integer("timeout");
}

// Runs `work` in a process of its own and returns how that ended.
int statusElsewhere(const std::function<bool()>& work) {
  const pid_t child = ::fork();
  if (child == 0)
    ::_exit(work() ? 0 : 1);
  int status = -1;
  ::waitpid(child, &status, 0);
  return status;
}

class BackendFaultTest : public StoreTest {};

TEST_F(BackendFaultTest, WaitsForALockButNotForEver) {
  const SampleScan scan{.files = 40};
  const std::string expected = undisturbed(scan);
  home_.makeDirectory("data/Tessivane");
  const DatabaseOwner other(path_);
  other.run("pragma journal_mode = wal; begin immediate; create table theirs(x)");
  const auto begin = std::chrono::steady_clock::now();
  EXPECT_FALSE(scan.run(store()));  // there are not even tables
  EXPECT_FALSE(scan.run(store()));
  EXPECT_LT(std::chrono::steady_clock::now() - begin, std::chrono::seconds(8));
  EXPECT_EQ(busyTimeout(store()), 0);
  other.run("commit");
  EXPECT_TRUE(scan.run(store()));
  EXPECT_EQ(contents(store().db()), expected);
  EXPECT_EQ(busyTimeout(store()), 2000);
}

TEST_F(BackendFaultTest, MakesGoodWhatAFullDatabaseRefused) {
  for (const bool bracketed : {true, false}) {
    const SampleScan scan{.files = 60, .isBracketed = bracketed};
    const std::string expected = undisturbed(scan);
    for (const int spare : {0, 1, 3, 8}) {
      SCOPED_TRACE(spare);
      beginAnew();
      leavePages(spare);
      EXPECT_FALSE(scan.run(store()));
      EXPECT_EQ(store().db().lastError(), "database or disk is full");
      EXPECT_FALSE(store().db().inTransaction());
      leavePages(100'000);
      EXPECT_TRUE(scan.run(store()));
      EXPECT_EQ(contents(store().db()), expected);
    }
  }
}

// Where the file system allows no write-ahead log, a reader can keep a commit from its lock.
TEST_F(BackendFaultTest, CommitsLaterWhatAReaderHeldUp) {
  const SampleScan scan;
  home_.makeDirectory("data/Tessivane");
  const DatabaseOwner reader(path_);
  store().db().exec("pragma journal_mode = delete; pragma busy_timeout = 0");
  reader.run("begin; select * from events");
  EXPECT_TRUE(scan.run(store()));
  EXPECT_TRUE(store().db().inTransaction());
  reader.run("commit");
  EXPECT_TRUE(scan.run(store()));
  close();
  EXPECT_EQ(contents(store().db()), undisturbed(scan));
}

TEST_F(BackendFaultTest, ReadsWhatItMayNotWrite) {
  const SampleScan scan;
  const std::string expected = undisturbed(scan);
  struct Row {
    std::string name = {};
    mode_t file = 0;
    mode_t directory = 0;
    bool readable = false;
  };
  // Without the right to make an index beside it, a write-ahead-log database cannot be read.
  for (const Row& row : {Row{"file", 0444, 0777, true},
                         Row{"directory", 0666, 0555},
                         Row{"both", 0444, 0555},
                         Row{"hidden", 0, 0777}}) {
    SCOPED_TRACE(row.name);
    ::chmod(home_.path().c_str(), 0777);
    const std::string directory = home_.path(row.name);
    const std::string path = directory + "/activity.sqlite";
    const int status = statusElsewhere([&] {
      // Root may write everywhere.
      constexpr uid_t nobody = 65534;
      if (::geteuid() == 0 && ::setuid(nobody) != 0)
        return false;
      BackendEventStore::open(path)->insert(commitEvent("before"));
      ::chmod(path.c_str(), row.file);
      ::chmod(directory.c_str(), row.directory);
      auto store = BackendEventStore::open(path);
      if (store && (scan.run(*store) || store->history(distantPast).events.empty() == row.readable))
        return false;
      ::chmod(directory.c_str(), 0777);
      for (const auto& file : fs::directory_iterator(directory))  // its log has the same rights
        ::chmod(file.path().c_str(), 0666);
      if (!store)
        store = BackendEventStore::open(path);
      return scan.run(*store) && store->db().run("delete from events where ref = 'before'") == 1 &&
             contents(store->db()) == expected;
    });
    EXPECT_EQ(status, 0);
  }
}

TEST_F(BackendFaultTest, SurvivesAnyDamage) {
  const SampleScan scan{.files = 3};
  scan.run(store());
  close();
  const std::string whole = *readWholeFile(path_, 1 << 20);
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  for (int round = 0; round < 200; ++round) {
    std::string damaged = whole;
    for (int i = 0; i <= round % 40; ++i)
      damaged[random() % damaged.size()] = static_cast<char>(random());
    if (round % 4 == 0)
      damaged.resize(random() % damaged.size());
    if (round == 1)
      damaged.assign(100000, 'x');
    home_.write("damaged/activity.sqlite", damaged);
    const auto store = BackendEventStore::open(home_.path("damaged/activity.sqlite"));
    ASSERT_TRUE(store);
    store->history(distantPast);
    scan.run(*store);
    store->localRoots();
    store->reconcilePR({.number = "1", .slug = "me/t", .root = "/t"});
    fs::remove_all(home_.path("damaged"));
  }
  EXPECT_FALSE(BackendEventStore::open(home_.path()));  // a directory
}

TEST_F(BackendFaultTest, GoesOnWhenALaterVersionAddsColumns) {
  const SampleScan scan;
  scan.run(store());
  const auto before = store().history(distantPast);
  const DatabaseOwner later(path_);
  for (const std::string table : {"events", "edit_minutes", "seen_items", "cursors", "kv"}) {
    later.run("alter table " + table + " add column later text not null default 'x'");
    later.run("alter table " + table + " add column more integer");
  }
  const auto after = store().history(distantPast);
  EXPECT_EQ(after.events, before.events);
  EXPECT_EQ(after.edits, before.edits);
  store().db().exec(
      "delete from events; delete from seen_items; delete from cursors; "
      "delete from edit_minutes; delete from kv");
  EXPECT_TRUE(scan.run(store()));
  EXPECT_EQ(contents(store().db()), undisturbed(scan));
}

// Counts the statements of all connections of this process, and ends it when one is due.
struct StatementCount {
  static inline int count = 0;
  static inline int deadline = 0;

  static int watch(sqlite3* db, char** /*error*/, const sqlite3_api_routines* /*api*/) {
    return sqlite3_trace_v2(db, SQLITE_TRACE_STMT, began, nullptr);
  }
  static int began(unsigned /*type*/, void* /*context*/, void* /*statement*/, void* /*text*/) {
    if (++count == deadline)
      ::kill(::getpid(), SIGKILL);
    return 0;
  }
  static void start() {
    count = 0;
    sqlite3_auto_extension(reinterpret_cast<void (*)()>(watch));
  }
  static void stop() { sqlite3_reset_auto_extension(); }
};

int statementsOf(const SampleScan& scan) {
  StatementCount::start();
  undisturbed(scan);
  StatementCount::stop();
  return StatementCount::count;
}

// Runs the scan in a process that is killed when it begins statement `deadline`. False when the
// scan ended before.
bool diesScanning(const SampleScan& scan, const std::string& path, int deadline) {
  const int status = statusElsewhere([&] {
    StatementCount::deadline = deadline;
    StatementCount::start();
    const auto store = BackendEventStore::open(path);
    return store && scan.run(*store);
  });
  EXPECT_TRUE(WIFSIGNALED(status) || status == 0);
  return WIFSIGNALED(status);
}

TEST_F(BackendFaultTest, ReachesTheSameRowsAfterACrash) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  int deaths = 0;
  for (const bool bracketed : {true, false}) {
    const SampleScan scan{.isBracketed = bracketed};
    const std::string expected = undisturbed(scan);
    std::uniform_int_distribution<int> anyStatement(1, statementsOf(scan));
    for (int round = 0; round < 150; ++round) {
      const std::string path = home_.path(std::to_string(deaths) + ".sqlite");
      std::string trace;
      for (int death = 0; death <= round % 3; ++death) {
        const int deadline = anyStatement(random);
        trace += " " + std::to_string(deadline);
        deaths += diesScanning(scan, path, deadline) ? 1 : 0;
      }
      const auto store = BackendEventStore::open(path);
      ASSERT_TRUE(scan.run(*store)) << store->db().lastError().value_or("");
      ASSERT_EQ(contents(store->db()), expected) << "killed at" << trace;
    }
  }
  EXPECT_GT(deaths, 300);
}

}  // namespace
}  // namespace tessivane
