// What the event database costs beside SQLite itself. By turns with each operation the bare work is
// timed, on a database of the same make with the same rows; the counter "ratio" is the quotient of
// the medians. The limits: 1.5 for 100,000 inserts in one transaction, 100 ms for the history of
// 50,000 rows.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <ctime>
#include <string>
#include <string_view>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/format.h>
#include <sqlite3.h>

#include "backend/BackendEventStore.h"
#include "backend/BackendTransaction.h"
#include "helpers/TempHome.h"

namespace tessivane {
namespace {

constexpr int insertCount = 100'000;
constexpr int historyCount = 50'000;

// Mixed up, and the same in every run.
std::uint64_t scattered(std::uint64_t number) {
  number = (number ^ (number >> 31U)) * 0x9e3779b97f4a7c15ULL;
  return number ^ (number >> 29U);
}

// Commits with hashes for refs over two days, in about the order of time: several sources tell what
// happened within the same ten minutes.
std::vector<ActivityEvent> sampleEvents(int count) {
  const Date start = *isoDate("2026-10-05T12:00:00Z");
  const std::chrono::milliseconds span = BackendEventStore::window;
  std::vector<ActivityEvent> events;
  for (int i = 0; i < count; ++i) {
    const std::uint64_t noise = scattered(static_cast<std::uint64_t>(i) + 1);
    events.push_back(
        {.kind = ActivityKind::commit,
         .date = start + i * span / count + std::chrono::milliseconds(noise % 600'000),
         .projectRoot = fmt::format("/home/somebody/projects/project-{}", noise % 40),
         .sessionID = fmt::format("claude:{:016x}-4b1c-9d2e-{:012x}", noise, noise % 300),
         .sessionTitle = "A title of the usual length, give or take",
         .owner = Agent::claude,
         .engine = Agent::claude,
         .ref = fmt::format("{:016x}{:016x}{:08x}", noise, scattered(noise), i),
         .title = "Give the shed a second window",
         .branch = "windows"});
  }
  return events;
}

// SQLite with nothing around it: one statement, prepared once.
class BareDatabase final {
 public:
  explicit BareDatabase(const std::string& path) {
    BackendEventStore::open(path);  // makes the tables
    sqlite3_open(path.c_str(), &db_);
    sqlite3_exec(db_, "pragma synchronous = normal", nullptr, nullptr, nullptr);
  }
  BareDatabase(const BareDatabase&) = delete;
  BareDatabase& operator=(const BareDatabase&) = delete;
  ~BareDatabase() { sqlite3_close(db_); }

  int insert(const std::vector<ActivityEvent>& events) {
    sqlite3_exec(db_, "begin immediate", nullptr, nullptr, nullptr);
    sqlite3_stmt* statement = prepared(
        "insert or ignore into events(ts, root, session_id, kind, ref, title, detail, branch, "
        "session_title, owner, engine) values (?, ?, ?, ?, ?, ?, ?, ?, ?, ?, ?)");
    int inserted = 0;
    for (const ActivityEvent& event : events) {
      sqlite3_bind_double(statement, 1, secondsSince1970(event.date));
      bind(statement, 2, event.projectRoot);
      bind(statement, 3, *event.sessionID);
      bind(statement, 4, rawValue(event.kind));
      bind(statement, 5, *event.ref);
      bind(statement, 6, event.title);
      bind(statement, 8, *event.branch);
      bind(statement, 9, *event.sessionTitle);
      bind(statement, 10, rawValue(*event.owner));
      bind(statement, 11, rawValue(*event.engine));
      sqlite3_step(statement);
      inserted += sqlite3_changes(db_);
      sqlite3_reset(statement);
    }
    sqlite3_finalize(statement);
    sqlite3_exec(db_, "commit", nullptr, nullptr, nullptr);
    return inserted;
  }

  // Steps over all events and looks at every column.
  int read() {
    sqlite3_stmt* statement = prepared("select * from events where ts >= 0 order by ts");
    int rows = 0;
    while (sqlite3_step(statement) == SQLITE_ROW) {
      ++rows;
      benchmark::DoNotOptimize(sqlite3_column_double(statement, 0));
      for (int column = 1; column < 11; ++column)
        benchmark::DoNotOptimize(sqlite3_column_text(statement, column));
    }
    sqlite3_finalize(statement);
    return rows;
  }

 private:
  static void bind(sqlite3_stmt* statement, int position, std::string_view text) {
    sqlite3_bind_text(
        statement, position, text.data(), static_cast<int>(text.size()), SQLITE_STATIC);
  }
  sqlite3_stmt* prepared(const char* sql) {
    sqlite3_stmt* statement = nullptr;
    sqlite3_prepare_v2(db_, sql, -1, &statement, nullptr);
    return statement;
  }

  sqlite3* db_ = nullptr;
};

// A time in milliseconds beside that of the bare work.
class Comparison final {
 public:
  template <typename Work, typename Bare>
  void measure(benchmark::State& state, Work work, Bare bare) {
    const auto beginCPU = std::clock();
    const auto begin = std::chrono::steady_clock::now();
    const auto worked = work();
    const auto middle = std::chrono::steady_clock::now();
    const auto middleCPU = std::clock();
    const auto wanted = bare();
    const auto end = std::chrono::steady_clock::now();
    if (worked != wanted)
      state.SkipWithError("the results differ");
    state.SetIterationTime(Seconds(middle - begin).count());
    worked_.push_back(Milliseconds(middle - begin).count());
    workedCPU_.push_back(1e3 * static_cast<double>(middleCPU - beginCPU) / CLOCKS_PER_SEC);
    bare_.push_back(Milliseconds(end - middle).count());
  }

  void report(benchmark::State& state) {
    state.counters["median_ms"] = median(worked_);
    state.counters["median_cpu_ms"] = median(workedCPU_);
    state.counters["bare_ms"] = median(bare_);
    state.counters["ratio"] = median(worked_) / median(bare_);
  }

 private:
  using Milliseconds = std::chrono::duration<double, std::milli>;

  static double median(std::vector<double>& values) {
    const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
    std::ranges::nth_element(values, middle);
    return *middle;
  }

  std::vector<double> worked_;
  std::vector<double> workedCPU_;  // says more where the machine has other things to do
  std::vector<double> bare_;
};

int insertAll(BackendEventStore& store, const std::vector<ActivityEvent>& events) {
  const BackendTransaction transaction(store);
  int inserted = 0;
  for (const ActivityEvent& event : events)
    inserted += store.insert(event) ? 1 : 0;
  return inserted;
}

void BM_insert(benchmark::State& state) {
  const auto events = sampleEvents(insertCount);
  Comparison comparison;
  for (auto _ : state) {
    const TempHome home;
    const auto store = BackendEventStore::open(home.path("store.sqlite"));
    BareDatabase bare(home.path("bare.sqlite"));
    comparison.measure(
        state, [&] { return insertAll(*store, events); }, [&] { return bare.insert(events); });
  }
  comparison.report(state);
}

void BM_history(benchmark::State& state) {
  const TempHome home;
  const auto store = BackendEventStore::open(home.path("store.sqlite"));
  insertAll(*store, sampleEvents(historyCount));
  BareDatabase bare(home.path("store.sqlite"));
  BackendEventStore::History history;
  const auto read = [&] {
    history = store->history(distantPast);
    return static_cast<int>(history.events.size());
  };
  Comparison comparison;
  for (auto _ : state) {
    history = {};
    comparison.measure(state, read, [&] { return bare.read(); });
  }
  comparison.report(state);
}

BENCHMARK(BM_insert)->UseManualTime()->Unit(benchmark::kMillisecond);
BENCHMARK(BM_history)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tessivane
