// Repositories made by the real git, scanned: what they give, that any way of reading them gives
// the same, and that no log, however broken, stops or hurts a scan.

#include "backend/BackendGitScan.h"

#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <set>

#include <fmt/format.h>
#include <gmock/gmock.h>

#include "StoreFixture.h"
#include "backend/BackendTransaction.h"
#include "git/BackendGitLayout.h"
#include "helpers/GitRepository.h"
#include "support/Files.h"
#include "support/Paths.h"

namespace tessivane {
namespace {

namespace fs = std::filesystem;
using std::chrono::hours;
using std::chrono::minutes;
using std::chrono::seconds;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::UnorderedElementsAre;
using Pass = BackendGitScan::Pass;

const std::string null(40, '0');

std::string hash(std::uint64_t number) {
  return fmt::format("{:040x}", number + 1);
}

std::string line(const std::string& from,
                 const std::string& to,
                 Date date,
                 const std::string& message) {
  return fmt::format("{} {} A <a@b> {} +0000\t{}\n",
                     from,
                     to,
                     std::chrono::floor<seconds>(date.time_since_epoch()).count(),
                     message);
}

std::string commitLine(std::uint64_t number, Date date) {
  return line(hash(number), hash(number + 1), date, "commit: " + std::to_string(number));
}

// "kind title on branch in root by session", with what there is.
std::string described(const ActivityEvent& event) {
  std::string text(rawValue(event.kind));
  text += " " + event.title;
  if (event.detail)
    text += " (" + *event.detail + ")";
  if (event.branch)
    text += " on " + *event.branch;
  text += " in " + std::string(lastPathComponent(event.projectRoot));
  if (event.sessionID)
    text += " by " + *event.sessionID;
  return text;
}

class BackendGitScanTest : public StoreTest {
 protected:
  std::string at(std::string_view path) const { return home_.path(path); }

  /// A session that is at work in a directory below the home.
  void work(const std::string& id, const std::string& directory, Date activity) {
    const std::string path = at(directory);
    sessions_.list.push_back(
        {.nativeID = id, .title = id, .cwd = path, .projectPath = path, .activity = activity});
  }

  /// One scan by a program that has just been started.
  std::vector<std::string> scan(const std::string& dir, Date now, Pass pass = Pass::live) {
    ProjectRootResolver roots(home_.path());
    BackendGitScan scan(
        store(), roots, [now] { return now; }, hours(6));
    std::vector<std::string> events;
    std::optional<BackendTransaction> transaction;
    if (isBracketed_)
      transaction.emplace(store());
    const bool isWhole = scan.scan(dir, pass, sessions_, [&](const ActivityEvent& event) {
      events.push_back(described(event));
      last_ = event;
    });
    EXPECT_EQ(isWhole, isStorable_);
    return events;
  }
  std::vector<std::string> scan(const GitRepository& git, Pass pass = Pass::live) {
    return scan(git.gitDir(), git.now(), pass);
  }
  /// A repository of which there is nothing but a log or two.
  std::vector<std::string> scanLogs() { return scan(at("p/.git"), noon); }
  void writeLog(const std::string& text, Date modified = noon) const {
    home_.write("p/.git/HEAD", "ref: refs/heads/main\n");
    home_.write(log_, text, modified);
  }

  const std::string log_ = "p/.git/logs/HEAD";
  bool isBracketed_ = true;
  bool isStorable_ = true;  // all that a scan finds
  BackendGitScan::Sessions sessions_;
  ActivityEvent last_;
};

TEST_F(BackendGitScanTest, TellsWhatHappenedInARepository) {
  GitRepository git(home_, "p");
  git.commit("One");
  work("a", "p", git.now());
  EXPECT_THAT(scan(git), ElementsAre("commit One on main in p by claude:a"));
  EXPECT_THAT(scan(git), IsEmpty());

  git.git({"checkout", "-q", "-b", "feature/x"});
  git.commit("Two");
  git.git({"commit", "-q", "--amend", "--allow-empty", "-m", "Two: better"});
  EXPECT_THAT(scan(git),
              UnorderedElementsAre("branched feature/x on feature/x in p by claude:a",
                                   "commit Two on feature/x in p by claude:a",
                                   "commit Two: better on feature/x in p"));
  // Moved on by a rename, a rebase and a cherry-pick: nothing is new but the commit in between.
  git.git({"branch", "-m", "feature/x", "y"});
  git.git({"checkout", "-q", "main"});
  git.commit("Three");
  git.git({"checkout", "-q", "y"});
  git.git({"rebase", "-q", "--keep-empty", "main"});
  git.git({"cherry-pick", "--allow-empty", "main~1"});
  git.git({"pack-refs", "--all"});
  EXPECT_THAT(scan(git), ElementsAre("commit Three on main in p"));
  git.git({"checkout", "-q", "--detach"});
  git.commit("Nowhere");
  EXPECT_THAT(scan(git), ElementsAre("commit Nowhere in p"));
  EXPECT_EQ(last_.firstSeen, git.now());
}

TEST_F(BackendGitScanTest, TellsWorktreesFromBranches) {
  GitRepository git(home_, "p");
  git.commit("One");
  git.git({"branch", "old"});
  git.advance(seconds(30));
  EXPECT_EQ(scan(git).size(), 2U);
  work("main", "p", git.now());
  git.git({"worktree", "add", "-q", "-b", "x", at("trees/new")});
  EXPECT_THAT(scan(git), ElementsAre("branched new (worktree) on x in new"));
  git.git({"worktree", "add", "-q", at("trees/old"), "old"});
  work("old", "trees/old", git.now() + minutes(1));
  git.git({"worktree", "add", "-q", "--detach", at("trees/loose")});
  EXPECT_THAT(scan(git, Pass::startUp),
              UnorderedElementsAre("branched old (worktree) on old in old by claude:old",
                                   "branched loose (worktree) in loose"));
  EXPECT_EQ(last_.firstSeen, distantPast);
  // The rename leaves a null hash in the HEAD log of the worktree.
  git.gitIn(at("trees/old"), {"branch", "-m", "other"});
  EXPECT_THAT(scan(git), IsEmpty());
  sessions_.branches = {{"claude:main", "other"}};
  git.commitIn(at("trees/old"), "In it");
  EXPECT_THAT(scan(git), ElementsAre("commit In it on other in old by claude:old"));
  // So does a commit on a branch without a past.
  git.gitIn(at("trees/old"), {"checkout", "-q", "--orphan", "bare"});
  git.commitIn(at("trees/old"), "First");
  EXPECT_THAT(scan(git), ElementsAre("commit First on bare in old"));
  fs::remove_all(at("trees"));
  sessions_ = {};
  EXPECT_THAT(scan(git), IsEmpty());
}

// With "git worktree add --orphan" (git 2.42) nothing but the first commit tells of the worktree.
TEST_F(BackendGitScanTest, WaitsForTheNameOfAWorktree) {
  const std::string admin = "p/.git/worktrees/w";
  home_.write(admin + "/HEAD", "ref: refs/heads/x\n");
  home_.write(admin + "/logs/HEAD", line(null, hash(1), noon, "commit (initial): One"), noon);
  // As git leaves it for a moment when the worktree moves.
  home_.write(admin + "/gitdir", "");
  EXPECT_THAT(scanLogs(), IsEmpty());
  home_.write(admin + "/gitdir", at("w/.git\n"));
  EXPECT_THAT(scanLogs(),
              UnorderedElementsAre("commit One on x in w", "branched w (worktree) on x in w"));
}

TEST_F(BackendGitScanTest, FindsANewBranchBehindAnyNumberOfOldOnes) {
  const std::string created = "branch: Created from x";
  std::string old;
  for (std::uint64_t i = 0; i < 20'000; ++i)
    old += line(null, hash(i), noon - hours(49), created);
  home_.write("p/.git/logs/refs/heads/a", old, noon);
  home_.write("p/.git/logs/refs/heads/b", line(null, hash(1), noon - hours(47), created), noon);
  EXPECT_THAT(scanLogs(), ElementsAre("branched b on b in p"));
}

TEST_F(BackendGitScanTest, LooksForABranchAmongTheSessionsOfItsRepository) {
  GitRepository other(home_, "q");
  other.commit("One");
  GitRepository git(home_, "p");
  git.commit("One");
  git.git({"worktree", "add", "-q", "-b", "tree", at("tree")});
  EXPECT_EQ(scan(git).size(), 2U);
  git.git({"branch", "x"});
  work("q", "q", git.now());
  work("tree", "tree", git.now() - seconds(60));
  sessions_.branches = {{"claude:q", "x"}, {"claude:tree", "x"}};
  EXPECT_THAT(scan(git), ElementsAre("branched x on x in tree by claude:tree"));
}

TEST_F(BackendGitScanTest, FindsTheTreeOfAGitDirectoryElsewhere) {
  GitRepository library(home_, "library");
  library.commit("One");
  GitRepository git(home_, "p");
  git.git({"submodule", "--quiet", "add", at("library"), "sub"});
  git.commitIn(at("p/sub"), "In the submodule");
  EXPECT_THAT(scan(at("p/.git/modules/sub"), git.now()),
              ElementsAre("commit In the submodule on main in sub"));

  GitRepository apart(home_, "apart", {"--separate-git-dir", at("elsewhere")});
  apart.commit("One");
  apart.git({"branch", "x"});
  work("a", "apart", apart.now() - hours(1));
  EXPECT_THAT(scan(at("elsewhere"), apart.now()),
              UnorderedElementsAre("commit One on main in apart", "branched x on x in apart"));
  apart.commit("Two");
  sessions_ = {};
  EXPECT_THAT(scan(at("elsewhere"), apart.now()), IsEmpty());
}

TEST_F(BackendGitScanTest, LooksBackAsFarAsItHasToAndNoFurther) {
  std::string text = commitLine(1, noon - hours(7));
  writeLog(text, noon - hours(7));
  // Untouched for too long: not even a fresh entry in it would be read.
  text += commitLine(2, noon);
  writeLog(text, noon - hours(6) - seconds(1));
  EXPECT_THAT(scanLogs(), IsEmpty());
  writeLog(text + commitLine(3, noon - hours(47)) + commitLine(4, noon - hours(49)));
  EXPECT_THAT(scanLogs(), ElementsAre("commit 3 on main in p"));
  fs::remove(at(log_));
  writeLog(commitLine(5, noon - hours(7)) + commitLine(6, noon - hours(6)));
  store().db().run("delete from cursors");
  EXPECT_THAT(scanLogs(), ElementsAre("commit 6 on main in p"));
  // Rewritten, shorter, as by "git reflog expire": what is known stays known.
  writeLog(commitLine(7, noon));
  EXPECT_THAT(scanLogs(), ElementsAre("commit 7 on main in p"));
}

TEST_F(BackendGitScanTest, GoesOnBehindBrokenLogs) {
  const std::string whole = commitLine(2, noon);
  writeLog(std::string("\0\xff\t\n\n", 5) + std::string(9 << 20, 'x') + "\n" + commitLine(1, noon) +
           whole.substr(0, 90));
  home_.write(
      "p/.git/logs/refs/heads/\xff\xfe", line(null, hash(9), noon, "branch: Created from x"), noon);
  ASSERT_EQ(::mkfifo(at("p/.git/logs/refs/heads/fifo").c_str(), 0600), 0);
  EXPECT_THAT(scanLogs(),
              ElementsAre("commit 1 on main in p", "branched \uFFFD\uFFFD on \uFFFD\uFFFD in p"));
  home_.append(log_, whole.substr(90));
  EXPECT_THAT(scanLogs(), ElementsAre("commit 2 on main in p"));
  fs::remove(at(log_));
  ASSERT_EQ(::mkfifo(at(log_).c_str(), 0600), 0);
  EXPECT_THAT(scanLogs(), IsEmpty());
}

// Logs of a working day, written in pieces of any size and read in between, each time by a program
// that has just been started.
TEST_F(BackendGitScanTest, FindsTheSameInAnyPieces) {
  GitRepository git(home_, "p");
  for (int i = 0; i < 12; ++i) {
    git.commit("Commit " + std::to_string(i));
    if (i % 4 == 1)
      git.git({"branch", "b" + std::to_string(i)});
  }
  git.git({"worktree", "add", "-q", at("tree"), "b5"});
  git.commitIn(at("tree"), "In the tree");
  std::map<std::string, std::string> logs;
  for (const auto& file : BackendGitLayout::reflogFiles(git.gitDir()))
    logs[file.path] = *readWholeFile(file.path, 1 << 20);
  work("a", "p", git.now());
  scan(git);
  // The cursors tell of the pieces.
  const auto events = [this] {
    store().db().run("delete from cursors");
    return contents(store().db());
  };
  const std::string expected = events();
  ASSERT_EQ(store().history(distantPast).events.size(), 17U);

  for (unsigned seed = 1; seed <= 15; ++seed) {
    SCOPED_TRACE(seed);
    std::mt19937 random(seed);
    beginAnew();
    for (const auto& [path, text] : logs)
      std::ofstream(path, std::ios::trunc);
    std::map<std::string, std::size_t> written;
    for (bool isLast = false; !isLast;) {
      isLast = true;
      for (const auto& [path, text] : logs) {
        const auto size = std::min<std::size_t>(random() % 500, text.size() - written[path]);
        std::ofstream(path, std::ios::app) << text.substr(written[path], size);
        written[path] += size;
        isLast = isLast && written[path] == text.size();
      }
      scan(git);
    }
    EXPECT_EQ(events(), expected);
  }
}

TEST_F(BackendGitScanTest, TellsAgainWhatCouldNotBeStored) {
  const std::string created = line(null, hash(0), noon, "branch: Created from x");
  home_.write("p/.git/logs/refs/heads/x", created, noon);
  std::string text = created;
  for (std::uint64_t i = 0; i < 400; ++i)
    text += commitLine(i, noon);
  writeLog(text);
  scanLogs();
  const std::string expected = contents(store().db());
  for (const bool bracketed : {true, false}) {
    isBracketed_ = bracketed;
    for (const int spare : {0, 2, 7, 30}) {
      SCOPED_TRACE(spare);
      beginAnew();
      leavePages(spare);
      isStorable_ = false;
      auto told = scanLogs();
      leavePages(100'000);
      isStorable_ = true;
      std::ranges::move(scanLogs(), std::back_inserter(told));
      EXPECT_TRUE(contents(store().db()) == expected);
      EXPECT_EQ(std::set(told.begin(), told.end()).size(), 401U);
    }
  }
}

// Five million entries are 700 MB of text. A twentieth shows as well that memory does not grow.
TEST_F(BackendGitScanTest, ReadsAHugeLogInLittleMemory) {
  writeLog("");
  std::ofstream file(at(log_), std::ios::app);
  for (std::uint64_t i = 0; i < 250'000; ++i)
    file << line(i % 2 == 0 ? null : hash(i), hash(i + 1), noon - hours(7), std::string(60, 'm'));
  file << commitLine(1, noon) << std::flush;
  home_.setModified(log_, noon);
  rusage before{};
  rusage after{};
  ::getrusage(RUSAGE_SELF, &before);
  EXPECT_THAT(scanLogs(), ElementsAre("commit 1 on main in p"));
  ::getrusage(RUSAGE_SELF, &after);
#ifdef __SANITIZE_ADDRESS__
  constexpr long limit = 400 << 10;  // in KiB; the sanitizer keeps what was freed for a while
#else
  constexpr long limit = 24 << 10;
#endif
  EXPECT_LT(after.ru_maxrss - before.ru_maxrss, limit);
}

}  // namespace
}  // namespace tessivane
