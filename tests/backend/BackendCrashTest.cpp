// The program dies at any moment. Whatever it left, the next run reaches the rows that a run left
// alone reaches.

#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <filesystem>
#include <random>

#include <sqlite3.h>

#include "SampleScan.h"

namespace tessivane {
namespace {

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
  const pid_t child = ::fork();
  if (child == 0) {
    StatementCount::deadline = deadline;
    StatementCount::start();
    const auto store = BackendEventStore::open(path);
    ::_exit(store && scan.run(*store) ? 0 : 1);
  }
  int status = 0;
  ::waitpid(child, &status, 0);
  EXPECT_TRUE(WIFSIGNALED(status) || WEXITSTATUS(status) == 0);
  return WIFSIGNALED(status);
}

TEST(BackendCrashTest, TheNextRunReachesTheSameRows) {
  const auto seed = std::random_device()();
  SCOPED_TRACE("seed " + std::to_string(seed));
  std::mt19937 random(seed);
  const TempHome home;
  int deaths = 0;
  for (const auto bracket : {SampleScan::Bracket::transaction, SampleScan::Bracket::none}) {
    const SampleScan scan{.bracket = bracket};
    const std::string expected = undisturbed(scan);
    std::uniform_int_distribution<int> anyStatement(1, statementsOf(scan));
    for (int round = 0; round < 150; ++round) {
      const std::string path = home.path(std::to_string(deaths) + ".sqlite");
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
