// The activity store while its database is locked, refuses to grow, is deleted or cannot be opened:
// it lives on, and once the fault is over everything is stored, once.

#include <sys/resource.h>

#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <functional>

#include <gmock/gmock.h>

#include "ActivityRun.h"
#include "helpers/DatabaseOwner.h"
#include "helpers/GitRepository.h"
#include "support/Files.h"

namespace tessivane {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using testing::UnorderedElementsAre;

/// No file may grow beyond that size while it lives.
class FullDisk final {
 public:
  explicit FullDisk(rlim_t size) {
    ::signal(SIGXFSZ, SIG_IGN);
    ::getrlimit(RLIMIT_FSIZE, &before_);
    rlimit limit = before_;
    limit.rlim_cur = size;
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  FullDisk(const FullDisk&) = delete;
  FullDisk& operator=(const FullDisk&) = delete;
  ~FullDisk() { ::setrlimit(RLIMIT_FSIZE, &before_); }

 private:
  rlimit before_{};
};

class BackendActivityFaultTest : public ActivityRun {
 protected:
  void begin() {
    firstCommit_ = repository_.commit("Begin");
    clock_.set(repository_.now());
    addSession("a").status = SessionStatus::working;
    sessions_[0].startedAt = clock_.now();
    for (const char* id : {"0", "z"})
      addSession(id);
    startWithSessions();
    say("a", {claude::bash("before", "gh pr create -t 'Before'")});
    tell();
  }
  void tell() {
    files_.change(home_.path(relative("a")));
    files_.change(repository_.gitDir() + "/logs/HEAD");
    queue_.advance(2s);
  }
  /// Things of every kind happen, in files that are read before and after the one that something
  /// may be wrong with.
  void work() {
    say("a", {claude::result("before", pullURL(1))});
    for (const char* id : {"0", "z"})
      say(id, {claude::bash("call", "gh pr create -t 'By " + std::string(id) + "'")});
    sayEdit("a", "code/shed/door.cpp");
    say("a", {claude::bash("within", "gh pr create -t 'Within'")});
    repository_.commit("Work");
    clock_.set(std::max(clock_.now(), repository_.now()));
    sessions_[0].status = SessionStatus::needsYou;
    addSession("b").startedAt = clock_.now();
  }
  /// What is stored without any further change of the files. The rest is told then.
  void workOn() {
    EXPECT_EQ(stored().edits.size(), 1U);
    EXPECT_EQ(stored().events.size(), 6U);
    say("a", {claude::result("within", pullURL(2))});
    say("0", {claude::result("call", pullURL(3))});
    say("z", {claude::result("call", pullURL(4))});
    tell();
  }
  /// What of it is stored.
  void expectAllOnce() {
    EXPECT_THAT(kindsAndTitlesOf(stored().events),
                UnorderedElementsAre("commit Begin",
                                     "commit Work",
                                     "prOpened Before",
                                     "prOpened Within",
                                     "prOpened By 0",
                                     "prOpened By z",
                                     "needsYou Session a",
                                     "started Session a",
                                     "started Session b"));
    EXPECT_EQ(filesOf(stored().edits), 1);
    std::set<std::string> ids;
    for (const ActivityEvent& event : events())
      ids.insert(event.id);
    // What is told anew after the loss of a file was handed over before.
    ids.erase("commit:" + home_.path("code/shed") + ":" + firstCommit_);
    ids.erase("started:" + home_.path("code/shed") + ":claude:a");
    EXPECT_EQ(ids.size(), 7U);
    EXPECT_EQ(editedFiles(), 1);
  }

  /// Something becomes wrong while there is work, and right again. All is stored in the end.
  void outlive(const std::function<void()>& fault, const std::function<void()>& mend) {
    begin();
    work();
    fault();
    refresh();
    tell();
    queue_.advance(100s);
    mend();
    queue_.advance(61s);
    workOn();
    expectAllOnce();
  }

  GitRepository repository_{home_, "code/shed"};
  std::string firstCommit_;
};

TEST_F(BackendActivityFaultTest, MakesGoodWhatALockPrevented) {
  home_.makeDirectory("data");
  const DatabaseOwner other(dbPath_);
  outlive([&] { other.run("begin immediate; create table theirs(x)"); },
          [&] {
            EXPECT_TRUE(events().empty());
            other.run("commit");
          });
}

/// A statement in the midst of a pass is refused, alone or with all that was stored before it.
class BackendActivityRefusalTest : public BackendActivityFaultTest,
                                   public testing::WithParamInterface<const char*> {};

TEST_P(BackendActivityRefusalTest, MakesGoodWhatItPrevented) {
  home_.makeDirectory("data");
  const DatabaseOwner other(dbPath_);
  const std::string refusal = " begin select raise(" + std::string(GetParam()) + ", 'no'); end;";
  outlive(
      [&] {
        other.run("create trigger t1 before insert on events when new.ref = '1'" + refusal +
                  "create trigger t2 before insert on events when new.title = 'Work'" + refusal);
      },
      [&] { other.run("drop trigger t1; drop trigger t2"); });
}

INSTANTIATE_TEST_SUITE_P(Kinds, BackendActivityRefusalTest, testing::Values("abort", "rollback"));

/// With so many bytes left.
class BackendActivityFullDiskTest : public BackendActivityFaultTest,
                                    public testing::WithParamInterface<int> {};

TEST_P(BackendActivityFullDiskTest, MakesGoodWhatItPrevented) {
  std::optional<FullDisk> full;
  outlive([&] { full.emplace(fs::file_size(dbPath_ + "-wal") + static_cast<rlim_t>(GetParam())); },
          [&] {
            EXPECT_LT(stored().events.size(), 4U);
            full.reset();
          });
}

INSTANTIATE_TEST_SUITE_P(Spare, BackendActivityFullDiskTest, testing::Values(0, 3000, 9000));

/// Whether the open file is emptied, or removed with its directory.
class BackendActivityLossTest : public BackendActivityFaultTest,
                                public testing::WithParamInterface<bool> {};

// The events of this run alone are carried over; what files tell is found anew.
TEST_P(BackendActivityLossTest, GoesOnInANewFile) {
  begin();
  if (GetParam())
    fs::resize_file(dbPath_, 0);
  else
    fs::remove_all(home_.path("data"));
  work();
  refresh();
  refresh();
  queue_.advance(2s);
  workOn();
  expectAllOnce();
}

INSTANTIATE_TEST_SUITE_P(Kinds, BackendActivityLossTest, testing::Bool());

TEST_F(BackendActivityFaultTest, WaitsUntilItsFileCanBeMadeAgain) {
  outlive(
      [this] {
        fs::rename(home_.path("data"), home_.path("aside"));
        home_.write("data", "in the way");
      },
      [this] {
        files_.rescan();
        queue_.advance(2h);
        fs::remove(home_.path("data"));
        fs::rename(home_.path("aside"), home_.path("data"));
      });
}

TEST_F(BackendActivityFaultTest, SetsADamagedFileAside) {
  const std::string damaged(40'000, 'x');
  std::ofstream(home_.makeDirectory("data") + "/activity.sqlite") << damaged;
  addSession("a").startedAt = clock_.now();
  openPullRequest("a", 1);
  start();
  refresh();
  queue_.advance(10s);
  EXPECT_EQ(stored().events.size(), 2U);
  EXPECT_EQ(readWholeFile(dbPath_ + ".damaged", 1 << 20), damaged);
  EXPECT_EQ(reports_.size(), 1U);
}

TEST_F(BackendActivityFaultTest, BeginsWhenItsFileCanBeOpened) {
  home_.write("data", "in the way");
  addSession("a").startedAt = clock_.now();
  openPullRequest("a", 1);
  start();
  refresh();
  queue_.advance(600s);
  EXPECT_LE(queue_.timers().size(), 1U);
  fs::remove(home_.path("data"));
  queue_.advance(62s);
  EXPECT_THAT(titles(), UnorderedElementsAre("Session a", "Add a door"));
  quit();
  EXPECT_TRUE(queue_.timers().empty());
}

}  // namespace
}  // namespace tessivane
