// An event database that is locked, full, read-only, broken or newer than the program: nothing
// hangs or crashes, and once the fault has passed the next pass stores what this one could not.

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <functional>
#include <random>

#include "SampleScan.h"
#include "helpers/DatabaseOwner.h"

namespace tessivane {
namespace {

namespace fs = std::filesystem;
using Bracket = SampleScan::Bracket;

std::int64_t pragma(BackendEventStore& store, const std::string& name, const char* column) {
  const auto rows = store.db().query("pragma " + name);
  return rows.empty() ? -1 : rows.front().integer(column).value_or(-1);
}

// Runs `work` in a process of its own, without the rights of root. True when it returned true.
bool succeedsElsewhere(const std::function<bool()>& work) {
  const pid_t child = ::fork();
  if (child == 0) {
    constexpr uid_t nobody = 65534;
    const bool ready = ::geteuid() != 0 || ::setuid(nobody) == 0;
    ::_exit(ready && work() ? 0 : 1);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  return WIFEXITED(status) && WEXITSTATUS(status) == 0;
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
  EXPECT_EQ(pragma(store(), "busy_timeout", "timeout"), 0);
  other.run("commit");
  EXPECT_TRUE(scan.run(store()));
  EXPECT_EQ(contents(store().db()), expected);
  EXPECT_EQ(pragma(store(), "busy_timeout", "timeout"), 2000);
}

TEST_F(BackendFaultTest, MakesGoodWhatAFullDatabaseRefused) {
  for (const auto bracket : {Bracket::transaction, Bracket::none}) {
    const SampleScan scan{.files = 60, .bracket = bracket};
    const std::string expected = undisturbed(scan);
    for (const int spare : {0, 1, 3, 8}) {
      SCOPED_TRACE(spare);
      close();
      fs::remove_all(home_.path("data"));
      const auto pages = pragma(store(), "page_count", "page_count") + spare;
      pragma(store(), "max_page_count = " + std::to_string(pages), "max_page_count");
      EXPECT_FALSE(scan.run(store()));
      EXPECT_EQ(store().db().lastError(), "database or disk is full");
      EXPECT_FALSE(store().db().inTransaction());
      pragma(store(), "max_page_count = 100000", "max_page_count");
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
    mode_t file = 0666;
    mode_t directory = 0777;
    bool readable = true;
  };
  // Without the right to make an index beside it, a write-ahead-log database cannot be read.
  for (const Row& row : {Row{.name = "file", .file = 0444},
                         Row{.name = "directory", .directory = 0555, .readable = false},
                         Row{.name = "both", .file = 0444, .directory = 0555, .readable = false},
                         Row{.name = "hidden", .file = 0, .readable = false}}) {
    SCOPED_TRACE(row.name);
    ::chmod(home_.path().c_str(), 0777);
    const std::string directory = home_.path(row.name);
    const std::string path = directory + "/activity.sqlite";
    EXPECT_TRUE(succeedsElsewhere([&] {
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
    }));
  }
}

TEST_F(BackendFaultTest, SurvivesAnyDamage) {
  const SampleScan scan{.files = 3};
  scan.run(store());
  close();
  std::ifstream file(path_, std::ios::binary);
  const std::string whole((std::istreambuf_iterator<char>(file)), {});
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

}  // namespace
}  // namespace tessivane
