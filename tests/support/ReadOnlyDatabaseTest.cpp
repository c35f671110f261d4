#include "support/ReadOnlyDatabase.h"

#include <sys/stat.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>

#include <gtest/gtest.h>
#include <sqlite3.h>

#include "helpers/DatabaseOwner.h"
#include "helpers/TempHome.h"
#include "support/ReadOnlyVFS.h"

namespace tessivane {
namespace {

namespace fs = std::filesystem;

const std::string table = "CREATE TABLE t(x); INSERT INTO t VALUES('one'), ('two');";
const std::string logged = "PRAGMA journal_mode=WAL; PRAGMA wal_autocheckpoint=0;" + table;
const std::string alone = "PRAGMA locking_mode=EXCLUSIVE;" + logged;  // keeps no index
const std::string emptied = logged + "PRAGMA wal_checkpoint(TRUNCATE);";
const std::string filled =
    table +
    "PRAGMA cache_size=1; BEGIN; WITH RECURSIVE n(i) AS (SELECT 1 UNION ALL SELECT i+1 FROM n "
    "WHERE i<200) INSERT INTO t SELECT hex(zeroblob(900)) FROM n;";

enum class Owner { works, quit, died };

// A database with its owner, and a place of its own for private copies.
struct Place {
  explicit Place(const std::string& sql, Owner state = Owner::works, const std::string& name = "db")
      : path(home.makeDirectory("data") + "/" + name), owner(path) {
    ::setenv("TMPDIR", temporary.path().c_str(), 1);  // NOLINT(concurrency-mt-unsafe)
    if (!sql.empty())
      owner.run(sql);
    if (state == Owner::quit)
      owner.close();
    if (state == Owner::died)
      owner.kill();
  }
  ~Place() { ::unsetenv("TMPDIR"); }  // NOLINT(concurrency-mt-unsafe)
  std::size_t copies() const { return directoryEntries(temporary.path()).size(); }

  TempHome home, temporary;
  std::string path;
  DatabaseOwner owner;
};

// The column x of all rows, then the failure if there is one.
std::string rowsOf(ReadOnlyDatabase& db, std::string_view sql = "SELECT x FROM t") {
  std::string rows;
  for (const auto& row : db.query(sql))
    rows += *row.text("x") + " ";
  return rows + db.lastError().value_or("");
}

TEST(ReadOnlyDatabaseTest, ReadsWhateverItFindsAndLeavesNothing) {
  const std::string plain = "?mode=ro", log = "?mode=ro&readonly_shm=1", still = "?immutable=1";
  struct Row {
    std::string name, sql;
    Owner owner;
    std::string mode, rows = "one two ", end = "-none";
    std::optional<std::string> contents = {};  // of the file with that end; nothing removes it
  };
  const Row rows[] = {
      {"rollback journal", table, Owner::quit, plain},
      {"transaction begun", table + "BEGIN IMMEDIATE; DELETE FROM t", Owner::works, plain},
      {"hot journal", filled, Owner::died, plain, "attempt to write a readonly database"},
      {"log and index", logged, Owner::works, log},
      {"owner died", logged, Owner::died, log},
      {"bad index", logged, Owner::died, log, "one two ", "-shm", std::string(32768, 'Z')},
      {"empty index", logged, Owner::died, log, "one two ", "-shm", ""},
      {"empty log", emptied, Owner::died, log},
      {"no index", logged, Owner::died, "copy", "one two ", "-shm"},
      {"no index in use", alone, Owner::works, "copy"},
      {"empty log, no index", emptied, Owner::died, still, "one two ", "-shm"},
      {"log mode at rest", logged, Owner::quit, still},
      {"index alone", logged, Owner::quit, still, "one two ", "-shm", "x"},
      // SQLite would delete this log.
      {"empty, with log", logged, Owner::died, still, "no such table: t", "", ""},
      {"empty", "", Owner::works, plain, "no such table: t", "", ""},
      {"short", "", Owner::works, plain, "file is not a database", "", "\2\2\2\2\2\2"}};
  for (const auto& row : rows) {
    SCOPED_TRACE(row.name);
    const Place place(row.sql, row.owner);
    fs::remove(place.path + row.end);
    if (row.contents)
      place.home.write("data/db" + row.end, *row.contents);
    const std::string before = place.home.listing();
    auto db = ReadOnlyDatabase::open(place.path);
    ASSERT_TRUE(db);
    EXPECT_EQ(rowsOf(*db), row.rows);
    EXPECT_EQ(place.copies(), row.mode == "copy" ? 1U : 0U);
    EXPECT_TRUE(row.mode == "copy" || db->uri() == "file:" + place.path + row.mode) << db->uri();
    EXPECT_EQ(place.home.listing(), before);
    db.reset();
    EXPECT_EQ(place.home.listing(), before);
    EXPECT_EQ(place.copies(), 0U);
  }
}

TEST(ReadOnlyDatabaseTest, FollowsLinksAndKeepsAwayFromWhatIsNoFile) {
  const Place place(logged, Owner::died);
  fs::create_symlink(place.path, place.home.path("link"));
  EXPECT_EQ(rowsOf(*ReadOnlyDatabase::open(place.home.path("link"))), "one two ");
  EXPECT_FALSE(ReadOnlyDatabase::open(place.path + "-none"));
  EXPECT_FALSE(ReadOnlyDatabase::open(place.home.path("data")));
  for (const std::string end : {"-journal", "-shm", "-wal", ""}) {
    fs::remove(place.path + end);
    ASSERT_EQ(::mkfifo((place.path + end).c_str(), 0600), 0);
    EXPECT_FALSE(ReadOnlyDatabase::open(place.path)) << end;
  }
}

TEST(ReadOnlyDatabaseTest, SeesWhatItsOwnerWritesMeanwhile) {
  for (const std::string& sql : {table, logged, alone}) {
    const Place place(sql);
    const auto db = ReadOnlyDatabase::open(place.path);
    EXPECT_EQ(rowsOf(*db), "one two ");
    place.owner.run("INSERT INTO t VALUES('three')");
    const std::string before = place.home.listing();
    EXPECT_EQ(rowsOf(*db), "one two three ");
    EXPECT_EQ(place.home.listing(), before);
    place.owner.run("BEGIN EXCLUSIVE; DELETE FROM t; COMMIT");  // nobody is in its way
    EXPECT_EQ(rowsOf(*db), "");
  }
}

TEST(ReadOnlyDatabaseTest, ReopensWhenTheFileIsNoLongerWhatItWas) {
  Place place(logged);
  const DatabaseOwner another(place.home.path("data/another"));
  const DatabaseOwner later(place.path);
  const auto db = ReadOnlyDatabase::open(place.path);
  EXPECT_TRUE(db->uri().ends_with("readonly_shm=1"));
  place.owner.close();  // takes the log away before anything is read through it
  const std::string before = place.home.listing();
  EXPECT_EQ(rowsOf(*db), "one two ");
  EXPECT_EQ(place.home.listing(), before);
  // A file of the same size and date takes its place.
  another.run(emptied + "UPDATE t SET x='new'; PRAGMA wal_checkpoint(TRUNCATE)");
  place.home.setModified("data/another", *modificationDate(place.path));
  fs::rename(place.home.path("data/another"), place.path);
  EXPECT_EQ(rowsOf(*db), "new new ");
  fs::rename(place.path, place.path + "-away");
  EXPECT_EQ(rowsOf(*db), "unable to open database file");
  fs::rename(place.path + "-away", place.path);
  EXPECT_EQ(rowsOf(*db), "new new ");
  later.run("INSERT INTO t VALUES('logged')");
  EXPECT_EQ(rowsOf(*db), "new new logged ");
}

TEST(ReadOnlyDatabaseTest, AChangeOfModeMeanwhileDoesNotMakeItWrite) {
  Place place(table);
  const auto db = ReadOnlyDatabase::open(place.path);
  EXPECT_EQ(rowsOf(*db), "one two ");
  place.owner.run("PRAGMA journal_mode=WAL; INSERT INTO t VALUES('three')");
  place.owner.close();
  const std::string before = place.home.listing();
  rowsOf(*db);  // fails, and finds out by it
  EXPECT_EQ(rowsOf(*db), "one two three ");
  EXPECT_EQ(place.home.listing(), before);
}

TEST(ReadOnlyDatabaseTest, AnUnchangedPairIsCopiedOnce) {
  const Place place(logged, Owner::died);
  const DatabaseOwner later(place.path);
  fs::remove(place.path + "-shm");
  DatabaseCopyMemo memo;
  const auto uri = [&] { return ReadOnlyDatabase::open(place.path, &memo)->uri(); };
  const std::string first = uri();
  EXPECT_EQ(uri(), first);
  place.home.setModified("data/db-wal", Date{});
  EXPECT_NE(uri(), first);
  EXPECT_EQ(place.copies(), 1U);
  later.run("SELECT * FROM t");
  EXPECT_TRUE(uri().ends_with("readonly_shm=1"));
  EXPECT_EQ(place.copies(), 0U);
}

// Root may write everywhere, so whoever runs this as root reads as another user.
TEST(ReadOnlyDatabaseTest, ReadsInADirectoryThatMayNotBeWrittenTo) {
  for (const std::string& sql : {table, logged, alone}) {
    for (const Owner owner : {Owner::works, Owner::quit, Owner::died}) {
      const Place place(sql, owner);
      const std::string data = place.home.path("data");
      fs::permissions(place.home.path(), fs::perms(0755));
      fs::permissions(place.temporary.path(), fs::perms(0777));
      fs::permissions(data, fs::perms(0555));
      const std::string before = place.home.listing();
      const auto readAsAnotherUser = [&] {
        const bool dropped = ::getuid() != 0 || ::setresuid(65534, 65534, 65534) == 0;
        const auto db = ReadOnlyDatabase::open(place.path);
        const bool done = db && rowsOf(*db) == "one two ";
        ::_exit(dropped && ::access(data.c_str(), W_OK) != 0 && done ? 0 : 1);
      };
      EXPECT_EXIT(readAsAnotherUser(), testing::ExitedWithCode(0), "") << sql;
      EXPECT_EQ(place.home.listing(), before);
      fs::permissions(data, fs::perms(0755));
    }
  }
}

TEST(ReadOnlyDatabaseTest, WaitsTwoSecondsForALock) {
  const Place place(table + "BEGIN EXCLUSIVE");
  const std::string before = place.home.listing();
  const auto db = ReadOnlyDatabase::open(place.path);
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(rowsOf(*db), "database is locked");
  EXPECT_NEAR(Seconds(std::chrono::steady_clock::now() - start).count(), 2.7, 1.2);
  EXPECT_EQ(place.home.listing(), before);
  place.owner.run("COMMIT");
  EXPECT_EQ(rowsOf(*db), "one two ");
}

TEST(ReadOnlyDatabaseTest, ValuesKeepTheirTypesAndDamageCostsOnlyWhatItHits) {
  const Place place(filled + "COMMIT; CREATE TABLE u(x); INSERT INTO u VALUES('far')", Owner::quit);
  const auto sound = ReadOnlyDatabase::open(place.path);
  const std::string text("it's\0é", 7);
  const auto rows =
      sound->query("SELECT 7 AS i, 1.5 AS r, ?1 AS t, NULL AS n, x'41' AS b, ?2 AS s", {text, "7"});
  ASSERT_EQ(rows.size(), 1U);
  EXPECT_EQ(rows[0].integer("i"), 7);
  EXPECT_EQ(*rows[0].value("r"), DatabaseValue(1.5));
  EXPECT_EQ(*rows[0].text("t"), text);
  EXPECT_TRUE(!rows[0].value("n") && !rows[0].value("b") && !rows[0].value("none"));
  EXPECT_TRUE(!rows[0].integer("s") && !rows[0].text("i"));
  // A sort too large for memory needs a temporary file of SQLite's own.
  sound->query("PRAGMA cache_size=5");
  EXPECT_EQ(sound->query("SELECT a.x FROM t a JOIN t b ORDER BY b.x").size(), 202U * 202U);
  std::string bytes = *readWholeFile(place.path, 10'000'000);
  place.home.write("data/db", bytes.replace(60'000, 20'000, 20'000, '\xAA'));
  const auto db = ReadOnlyDatabase::open(place.path);
  EXPECT_TRUE(rowsOf(*db).starts_with("one two 0000"));
  EXPECT_EQ(db->lastError(), "database disk image is malformed");
  EXPECT_EQ(rowsOf(*db, "SELECT x FROM u"), "far ");
  EXPECT_EQ(rowsOf(*db, "SELECT x FROM nowhere"), "no such table: nowhere");
}

TEST(ReadOnlyDatabaseTest, AnyNameWillDo) {
  for (const char* name :
       {"a b", "q?mode=rw&x=1", "h#ash", "100%41", "\"it's\"", "ü\xFF", "a\\b;"}) {
    const Place place(logged, Owner::works, name);
    const std::string before = place.home.listing();
    const auto db = ReadOnlyDatabase::open("/" + place.path);
    EXPECT_EQ(db ? rowsOf(*db) : "closed", "one two ") << name;
    EXPECT_EQ(place.home.listing(), before) << name;
  }
}

TEST(ReadOnlyDatabaseTest, TheFileLayerNeitherCreatesNorDeletes) {
  for (const Owner owner : {Owner::quit, Owner::died}) {
    const Place place(logged, owner);
    if (owner == Owner::died)
      place.home.write("data/db", "");
    const std::string before = place.home.listing();
    const std::string uri = "file:" + place.path + "?mode=ro&readonly_shm=1";
    sqlite3* db = nullptr;
    sqlite3_open_v2(uri.c_str(), &db, SQLITE_OPEN_READONLY | SQLITE_OPEN_URI, readOnlyVFSName());
    EXPECT_NE(sqlite3_exec(db, "SELECT x FROM t", nullptr, nullptr, nullptr), SQLITE_OK);
    sqlite3_close(db);
    EXPECT_EQ(place.home.listing(), before);
  }
}

}  // namespace
}  // namespace tessivane
