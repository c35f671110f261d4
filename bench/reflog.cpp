// What it costs to read a repository's reflogs. The limits: a log of 100,000 entries from its start
// in 50 ms, from its cursor with ten new entries in 0.2 ms, and both ten times faster than asking
// git for the same.
//
// - parse: every entry of the log becomes a value; bare: one pass that finds the ends of lines;
// - start: a scan of a repository seen for the first time, with ten commits in its window;
// - appended: a scan from the cursors, after ten new entries that need not be stored;
// - stored: the same after ten commits, and statements: the statements alone that store them;
// - nothing: a scan from the cursors with nothing new;
// - git: git prints the same entries, of a log with as many commits as entries.

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <optional>
#include <sstream>
#include <string>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "backend/BackendGitScan.h"
#include "backend/BackendTransaction.h"
#include "git/BackendReflogEntry.h"
#include "helpers/Command.h"
#include "helpers/GitRepository.h"
#include "support/Files.h"

namespace tessivane {
namespace {

using std::chrono::hours;
using std::chrono::seconds;

constexpr int entryCount = 100'000;
constexpr int freshCount = 10;
const Date now = ManualClock::defaultStart + hours(1);

// The repository, its log of a long time, and the hashes of its two commits.
struct Scene {
  TempHome home = {};
  GitRepository git{home, "p"};
  std::string first = git.commit("First");
  std::string second = git.commit("Second");
  std::string log = git.gitDir() + "/logs/HEAD";
  std::uint64_t fresh = 0;

  Scene() {
    std::ofstream file(log, std::ios::trunc);
    for (int i = 0; i < entryCount - freshCount; ++i)
      file << line(i % 2 == 0 ? first : second, now - hours(24 * 365) + seconds(200) * i);
  }

  std::string line(const std::string& hash, Date date, const char* what = "commit: ") const {
    const auto at = std::chrono::floor<seconds>(date.time_since_epoch()).count();
    return fmt::format(
        "{} {} Ann B. Author <ann@example.org> {} +0200\t{}A subject of the usual length\n",
        first,
        hash,
        at,
        what);
  }

  // Ten entries, of commits that were not there before or of nothing that counts.
  void append(bool areCommits) {
    std::string lines;
    for (int i = 0; i < freshCount; ++i)
      lines += line(fmt::format("{:040x}", ++fresh), now, areCommits ? "commit: " : "checkout: ");
    std::ofstream(log, std::ios::app) << lines;
  }
};

Scene& scene() {
  static Scene scene;
  return scene;
}

// A store and the scan as they are after a start, with twenty sessions.
struct Reader {
  TempHome home = {};
  std::unique_ptr<BackendEventStore> store = BackendEventStore::open(home.path("db/a.sqlite"));
  ProjectRootResolver roots{"/home/nobody"};
  BackendGitScan scan{*store, roots, [] { return now; }, hours(6)};
  BackendGitScan::Sessions sessions = {};

  Reader() {
    for (int i = 0; i < 20; ++i)
      sessions.list.push_back({.nativeID = std::to_string(i),
                               .title = "A session",
                               .cwd = scene().git.path(),
                               .projectPath = scene().git.path(),
                               .activity = now});
  }

  int events() {
    int count = 0;
    const BackendTransaction transaction(*store);
    scan.scan(
        scene().git.gitDir(), BackendGitScan::Pass::live, sessions, [&count](const ActivityEvent&) {
          ++count;
        });
    return count;
  }
};

void require(benchmark::State& state, bool condition, const char* what) {
  if (!condition)
    state.SkipWithError(what);
}

void BM_bare(benchmark::State& state) {
  for (auto _ : state) {
    const auto text = readWholeFile(scene().log, 1 << 30);
    int lines = 0;
    const char* end = text->data() + text->size();
    for (const char* at = text->data(); at != end; ++lines)
      at = static_cast<const char*>(std::memchr(at, '\n', static_cast<std::size_t>(end - at))) + 1;
    benchmark::DoNotOptimize(lines);
  }
}

void BM_parse(benchmark::State& state) {
  for (auto _ : state) {
    const auto text = readWholeFile(scene().log, 1 << 30);
    int count = 0;
    BackendReflogEntry::visit(*text, [&count](const BackendReflogEntry&) { ++count; });
    require(state, count >= entryCount - freshCount, "entries are missing");
  }
}

void BM_start(benchmark::State& state) {
  scene().append(true);
  for (auto _ : state) {
    state.PauseTiming();
    std::optional<Reader> reader(std::in_place);
    state.ResumeTiming();
    require(state, reader->events() >= freshCount, "commits are missing");
    state.PauseTiming();
    reader.reset();
    state.ResumeTiming();
  }
}

void appended(benchmark::State& state, bool areCommits) {
  Reader reader;
  reader.events();
  for (auto _ : state) {
    state.PauseTiming();
    scene().append(areCommits);
    state.ResumeTiming();
    require(state, reader.events() == (areCommits ? freshCount : 0), "not what was appended");
  }
}

void BM_appended(benchmark::State& state) {
  appended(state, false);
}

void BM_stored(benchmark::State& state) {
  appended(state, true);
}

void BM_statements(benchmark::State& state) {
  Reader reader;
  reader.events();
  BackendEventStore& store = *reader.store;
  std::uint64_t number = 1ULL << 40;
  for (auto _ : state) {
    const BackendTransaction transaction(store);
    const auto cursor = store.cursor(scene().log);
    for (int i = 0; i < freshCount; ++i) {
      const std::string ref = fmt::format("{:040x}", ++number);
      benchmark::DoNotOptimize(store.isSeen(ref));
      store.insert(
          {.date = now, .projectRoot = scene().git.path(), .ref = ref, .title = "A title"});
      store.markSeen(ref, now);
    }
    store.setCursor(*cursor, scene().log, now);
  }
}

void BM_nothing(benchmark::State& state) {
  Reader reader;
  reader.events();
  for (auto _ : state)
    require(state, reader.events() == 0, "something is new");
}

// A log of which every entry is a commit that is there.
struct AskedScene {
  TempHome home = {};
  GitRepository git{home, "p"};

  AskedScene() {
    const Scene& model = scene();
    const std::string subject = "A subject of the usual length\n";
    std::string commits;
    for (int i = 0; i < entryCount; ++i)
      commits += fmt::format(
          "commit refs/heads/main\ncommitter Ann <ann@example.org> {} +0200\ndata {}\n{}\n",
          1'700'000'000 + 200 * i,
          subject.size(),
          subject);
    const std::string input = home.write("commits", commits);
    commandOutput({"sh", "-c", R"(git -C "$0" fast-import --quiet < "$1")", git.path(), input},
                  {"PATH=/usr/bin:/bin"});
    std::istringstream hashes(git.git({"rev-list", "--reverse", "main"}));
    std::ofstream log(git.gitDir() + "/logs/HEAD", std::ios::trunc);
    Date date = now - hours(24 * 365);
    for (std::string hash; hashes >> hash; date += seconds(200))
      log << model.line(hash, date);
  }
};

// Git's entries, as many as `limit`, newest first.
void BM_git(benchmark::State& state) {
  static AskedScene asked;
  const std::string limit = "-n" + std::to_string(state.range(0));
  for (auto _ : state) {
    const std::string text =
        asked.git.git({"log", "-g", limit, "--format=%H %gd %gs", "--date=unix", "HEAD"});
    require(state,
            text.size() > 40 * static_cast<std::size_t>(state.range(0)),
            "git prints too little");
  }
}

BENCHMARK(BM_bare)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_parse)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_start)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_git)->Arg(entryCount)->Unit(benchmark::kMillisecond)->UseRealTime();
BENCHMARK(BM_appended)->Unit(benchmark::kMicrosecond)->UseRealTime()->Iterations(300);
BENCHMARK(BM_stored)->Unit(benchmark::kMicrosecond)->UseRealTime()->Iterations(300);
BENCHMARK(BM_statements)->Unit(benchmark::kMicrosecond)->UseRealTime()->Iterations(300);
BENCHMARK(BM_nothing)->Unit(benchmark::kMicrosecond)->UseRealTime();
BENCHMARK(BM_git)->Arg(freshCount)->Unit(benchmark::kMicrosecond)->UseRealTime();

}  // namespace
}  // namespace tessivane
