// What the running program costs and how soon it knows, measured from outside on a home as a busy
// person has it: 60 sessions, 40 repositories, 2 GB of transcripts, all read from the page cache.
//
// - first start: until the last line of each transcript and the commit of each repository is stored
// - start with cursors: until a commit is stored that was made while the program was down. What is
//   known already is handed to the views before anything is read, so it takes less than this.
// - latency: from a line, a commit or a worktree until its row can be read in the database
// - idle and busy: processor time, of one core, while nothing happens and while four sessions write
//   20 lines a second each
// - memory: the most that was resident
//
// Usage: running_program PROGRAM [--smoke]     --smoke: a small home and few samples, no judgement

#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <exception>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <sstream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <utility>
#include <vector>

#include <fmt/format.h>
#include <sqlite3.h>

#include "SampleRollout.h"
#include "SampleTranscript.h"
#include "helpers/AgentLines.h"
#include "helpers/CodexDatabase.h"
#include "helpers/Command.h"
#include "helpers/ProgramRun.h"
#include "helpers/Random.h"
#include "helpers/TempHome.h"
#include "platform/SystemClock.h"

namespace {

namespace fs = std::filesystem;

using namespace tessivane;
using std::chrono::milliseconds;
using SteadyClock = std::chrono::steady_clock;

struct Size {
  std::size_t claudeSessions = 45;
  std::size_t codexThreads = 15;
  std::size_t repositories = 40;
  std::size_t bytesOfEach = std::size_t{2'000'000'000} / 60;
  std::size_t samples = 40;
  Seconds idle{60};
  bool isJudged = true;
};

constexpr Size smoke{.claudeSessions = 4,
                     .codexThreads = 2,
                     .repositories = 3,
                     .bytesOfEach = 300'000,
                     .samples = 2,
                     .idle = Seconds(2),
                     .isJudged = false};

constexpr std::size_t writers = 4;
constexpr milliseconds betweenLines{50};
constexpr std::chrono::minutes patience{2};

double elapsedSeconds(SteadyClock::time_point since) {
  return std::chrono::duration<double>(SteadyClock::now() - since).count();
}

// Looks into the program's database as often as another process can for next to nothing: SQLite
// tells whether anything was stored since the last look.
class DatabaseWatch final {
 public:
  explicit DatabaseWatch(std::string path) : path_(std::move(path)) {}
  DatabaseWatch(const DatabaseWatch&) = delete;
  DatabaseWatch& operator=(const DatabaseWatch&) = delete;
  ~DatabaseWatch() { sqlite3_close(db_); }

  // Waits until as many rows are there as `sql` counts.
  void waitFor(const std::string& sql, std::int64_t count) {
    const auto end = SteadyClock::now() + patience;
    std::optional<std::int64_t> version;
    while (SteadyClock::now() < end) {
      const auto now = number("pragma data_version");
      if (now && now != version) {
        version = now;
        if (number(sql).value_or(0) >= count)
          return;
      }
      std::this_thread::sleep_for(milliseconds(1));
    }
    throw std::runtime_error("nothing came of: " + sql);
  }

 private:
  std::optional<std::int64_t> number(const std::string& sql) {
    if (db_ == nullptr &&
        sqlite3_open_v2(path_.c_str(), &db_, SQLITE_OPEN_READONLY, nullptr) != SQLITE_OK) {
      sqlite3_close(std::exchange(db_, nullptr));
      return std::nullopt;
    }
    sqlite3_stmt* statement = nullptr;
    std::optional<std::int64_t> found;
    if (sqlite3_prepare_v2(db_, sql.c_str(), -1, &statement, nullptr) == SQLITE_OK &&
        sqlite3_step(statement) == SQLITE_ROW)
      found = sqlite3_column_int64(statement, 0);
    sqlite3_finalize(statement);
    return found;
  }

  std::string path_;
  sqlite3* db_ = nullptr;
};

void append(const std::string& path, const std::string& lines) {
  std::ofstream file(path, std::ios::binary | std::ios::app);
  file << lines << std::flush;
  if (!file)
    throw std::runtime_error("cannot write " + path);
}

class Home final {
 public:
  Home(const ProgramHome& place, const Size& size);

  /// Adds an edit to a session of that tool, or a commit, and tells how to count its row.
  std::string appendToClaude(std::size_t index);
  std::string appendToCodex(std::size_t index);
  std::string commit(std::size_t index);
  std::string addWorktree(std::size_t index);
  /// What a session writes while it works, most of it of no interest.
  void work(std::size_t index);

  std::size_t edits() const { return claude_.size() + codex_.size(); }
  std::size_t repositories() const { return repositories_.size(); }
  static constexpr std::string_view countEdits =
      "select count(*) from seen_items where key like 'native:mark%'";
  static constexpr std::string_view countCommits =
      "select count(*) from events where kind = 'commit'";

 private:
  template <typename Lines>
  struct Session {
    Lines lines;
    std::string path;
  };

  void addRepository(std::size_t index);
  void addClaude(std::size_t index, const Size& size);
  void addCodex(std::size_t index, const Size& size);
  std::string nextName(const std::string& prefix) { return prefix + std::to_string(++names_); }

  const ProgramHome place_;
  Random random_{1};
  std::vector<std::string> repositories_;
  std::vector<Session<ClaudeLines>> claude_;
  std::vector<Session<CodexLines>> codex_;
  CodexDatabase database_;
  int names_ = 0;
};

Home::Home(const ProgramHome& place, const Size& size)
    : place_(place), database_(place.home() + "/.codex/state_5.sqlite") {
  for (std::size_t index = 0; index < size.repositories; ++index)
    addRepository(index);
  for (std::size_t index = 0; index < size.claudeSessions; ++index)
    addClaude(index, size);
  for (std::size_t index = 0; index < size.codexThreads; ++index)
    addCodex(index, size);
}

void Home::addRepository(std::size_t index) {
  repositories_.push_back(place_.home() + "/src/project-" + std::to_string(index));
  fs::create_directories(repositories_.back());
  gitOutput(repositories_.back(), {"init", "--quiet", "--initial-branch=main"});
  commit(index);
}

// Between two sessions as busy as they get and one that was left an hour ago.
void Home::addClaude(std::size_t index, const Size& size) {
  const Date now = systemNow();
  const ClaudeLines lines{.sessionID = random_.uuid(),
                          .cwd = repositories_[index % repositories_.size()]};
  const std::string folder = place_.home() + "/.claude/projects/p" + std::to_string(index);
  fs::create_directories(folder);
  claude_.push_back({lines, folder + "/" + lines.sessionID + ".jsonl"});
  append(claude_.back().path,
         sampleTranscript({.seed = index,
                           .sessionID = lines.sessionID,
                           .cwd = lines.cwd,
                           .first = now - std::chrono::hours(5),
                           .last = now - std::chrono::minutes(index),
                           .bytes = size.bytesOfEach}));
  appendToClaude(index);
}

void Home::addCodex(std::size_t index, const Size& size) {
  const Date now = systemNow();
  const CodexLines lines{.threadID = random_.uuid(),
                         .cwd = repositories_[index % repositories_.size()]};
  const std::string folder = place_.home() + "/.codex/sessions/2026/10/05";
  fs::create_directories(folder);
  codex_.push_back({lines, folder + "/rollout-" + lines.threadID + ".jsonl"});
  append(codex_.back().path,
         sampleRollout({.seed = index,
                        .threadID = lines.threadID,
                        .cwd = lines.cwd,
                        .first = now - std::chrono::hours(5),
                        .last = now - std::chrono::minutes(index),
                        .bytes = size.bytesOfEach}));
  appendToCodex(index);
  database_.insert({.id = lines.threadID,
                    .rolloutPath = codex_.back().path,
                    .recency = now,
                    .title = "Thread",
                    .cwd = lines.cwd,
                    .threadSource = "user",
                    .originator = "codex-tui"});
}

std::string Home::appendToClaude(std::size_t index) {
  const auto& session = claude_[index % claude_.size()];
  const std::string id = nextName("mark");
  append(session.path, session.lines.edit(id, session.lines.cwd + "/file", systemNow()));
  return "select count(*) from seen_items where key = 'native:" + id + "'";
}

std::string Home::appendToCodex(std::size_t index) {
  const auto& session = codex_[index % codex_.size()];
  const std::string id = nextName("mark");
  append(session.path, session.lines.edit(id, {session.lines.cwd + "/file"}, systemNow()));
  return "select count(*) from seen_items where key = 'native:" + id + "'";
}

std::string Home::commit(std::size_t index) {
  const std::string& root = repositories_[index % repositories_.size()];
  const std::string title = nextName("Change ");
  gitOutput(root, {"commit", "--quiet", "--allow-empty", "-m", title});
  return "select count(*) from events where kind = 'commit' and title = '" + title + "'";
}

std::string Home::addWorktree(std::size_t index) {
  const std::string& root = repositories_[index % repositories_.size()];
  const std::string name = nextName("tree-");
  gitOutput(root, {"worktree", "add", "--quiet", "-b", "work/" + name, root + "-" + name});
  return "select count(*) from events where kind = 'branched' and root = '" + root + "-" + name +
         "'";
}

void Home::work(std::size_t index) {
  const auto& session = claude_[index % claude_.size()];
  const Date now = systemNow();
  switch (random_.below(8)) {
    case 0:
      appendToClaude(index);
      return;
    case 1:
      append(session.path, session.lines.command(nextName("call"), "ninja -C build", now));
      return;
    default:
      append(session.path, session.lines.answer(std::string(random_.size(100, 20'000), 'x'), now));
  }
}

// User and system time of all threads so far, in seconds.
double processorTime(const ProgramRun& run) {
  std::ifstream file("/proc/" + std::to_string(run.process()) + "/stat");
  std::string text{std::istreambuf_iterator<char>(file), {}};
  // The name in brackets may hold blanks; the times are the 12th and 13th field after it.
  text.erase(0, text.rfind(')') + 1);
  std::istringstream fields(text);
  std::string field;
  for (int skipped = 0; skipped < 11; ++skipped)
    fields >> field;
  double user = 0;
  double system = 0;
  fields >> user >> system;
  return (user + system) / static_cast<double>(::sysconf(_SC_CLK_TCK));
}

// In millions of bytes.
double peakMemory(const ProgramRun& run) {
  std::ifstream file("/proc/" + std::to_string(run.process()) + "/status");
  std::string word;
  double kibibytes = 0;
  while (file >> word) {
    if (word == "VmHWM:")
      file >> kibibytes;
  }
  return kibibytes * 1024 / 1e6;
}

class Report final {
 public:
  explicit Report(bool isJudged) : isJudged_(isJudged) {}

  void add(const std::string& what, double value, const char* unit, double limit) {
    const bool isOver = value > limit;
    isOver_ = isOver_ || isOver;
    fmt::print("{:46} {:8.2f} {:2}  {} {:.1f}\n",
               what,
               value,
               unit,
               !isJudged_ ? "limit"
               : isOver   ? "OVER"
                          : "within",
               limit);
    std::fflush(stdout);
  }

  bool isGood() const { return !isJudged_ || !isOver_; }

 private:
  bool isJudged_;
  bool isOver_ = false;
};

class Measurement final {
 public:
  Measurement(std::string program, const ProgramHome& place, const Size& size)
      : program_(std::move(program)),
        place_(place),
        size_(size),
        report_(size.isJudged),
        home_(place, size),
        database_(place.database()) {}

  bool run() {
    measureStarts();
    measureLatencies();
    measureProcessorTime();
    report_.add("peak memory", peak_, "MB", 60);
    stop();
    return report_.isGood();
  }

 private:
  void start() { run_ = std::make_unique<ProgramRun>(place_.headless(program_)); }

  void stop() {
    peak_ = std::max(peak_, peakMemory(*run_));
    run_->signal(SIGTERM);
    if (run_->wait(patience) != 0)
      throw std::runtime_error("the program did not end well");
  }

  void measureStarts() {
    auto begin = SteadyClock::now();
    start();
    database_.waitFor(std::string(Home::countEdits), static_cast<std::int64_t>(home_.edits()));
    database_.waitFor(std::string(Home::countCommits),
                      static_cast<std::int64_t>(home_.repositories()));
    report_.add("first start, until all is stored", elapsedSeconds(begin), "s", 3);
    fmt::print("{:46} {:8.2f} s\n", "  processor time so far", processorTime(*run_));
    fmt::print("{:46} {:8.2f} MB\n", "  peak memory so far", peakMemory(*run_));
    stop();

    const std::string commit = home_.commit(0);
    const std::string edit = home_.appendToClaude(0);
    begin = SteadyClock::now();
    start();
    database_.waitFor(commit, 1);
    report_.add("start with cursors, until a commit is stored", elapsedSeconds(begin), "s", 1);
    database_.waitFor(edit, 1);
    fmt::print("{:46} {:8.2f} s\n", "  until an edit is stored", elapsedSeconds(begin));
    settle();
  }

  // The first look of a session list comes with work of its own.
  void settle() const { std::this_thread::sleep_for(size_.isJudged ? Seconds(40) : Seconds(1)); }

  void measureLatencies() {
    measureLatency("a line of Claude Code", [this](auto i) { return home_.appendToClaude(i); });
    measureLatency("a line of Codex", [this](auto i) { return home_.appendToCodex(i); });
    measureLatency("a commit", [this](auto i) { return home_.commit(i); });
    measureLatency("a new worktree", [this](auto i) { return home_.addWorktree(i); });
  }

  void measureLatency(const std::string& what, const std::function<std::string(std::size_t)>& act) {
    std::vector<double> seconds;
    for (std::size_t index = 0; index < size_.samples; ++index) {
      // In step with none of the program's own intervals.
      std::this_thread::sleep_for(milliseconds(100 + random_.below(1'500)));
      const std::string row = act(index);
      const auto begin = SteadyClock::now();
      database_.waitFor(row, 1);
      seconds.push_back(elapsedSeconds(begin));
    }
    std::ranges::sort(seconds);
    report_.add("latency of " + what + ", median", seconds[seconds.size() / 2], "s", 1.2);
    report_.add("  95th percentile", seconds[seconds.size() * 95 / 100], "s", 1.2);
  }

  void measureProcessorTime() {
    settle();
    const auto share = [this](const char* what, double limit, const std::function<void()>& task) {
      const double before = processorTime(*run_);
      const auto begin = SteadyClock::now();
      task();
      const double used = processorTime(*run_) - before;
      report_.add(what, used / elapsedSeconds(begin) * 100, "%", limit);
    };
    share("processor time, idle", 0.5, [this] { std::this_thread::sleep_for(size_.idle); });
    share("processor time, four sessions at work", 3, [this] {
      const auto begin = SteadyClock::now();
      for (auto next = begin; next < begin + size_.idle; next += betweenLines) {
        std::this_thread::sleep_until(next);
        for (std::size_t writer = 0; writer < writers; ++writer)
          home_.work(writer);
      }
    });
    peak_ = std::max(peak_, peakMemory(*run_));
  }

  const std::string program_;
  const ProgramHome place_;
  const Size size_;
  Report report_;
  Home home_;
  DatabaseWatch database_;
  Random random_{2};
  std::unique_ptr<ProgramRun> run_;
  double peak_ = 0;
};

bool measure(const std::string& program, const Size& size) {
  const TempHome directory;
  return Measurement(program, ProgramHome(directory.path()), size).run();
}

}  // namespace

int main(int argc, char** argv) {
  const bool isSmoke = argc == 3 && std::string_view(argv[2]) == "--smoke";
  if (argc != 2 && !isSmoke) {
    std::fprintf(stderr, "Usage: running_program PROGRAM [--smoke]\n");
    return 2;
  }
  try {
    return measure(argv[1], isSmoke ? smoke : Size()) ? 0 : 1;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "running_program: %s\n", error.what());
    return 1;
  }
}
