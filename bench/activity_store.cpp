// What the activity store costs while nothing happens, in a home with 300 sessions in 2,000
// repositories: one stat poll, beside the bare stat calls, and one look at everything, which is
// taken where there are no file events. The counter "core" is the part of a core that it takes in
// its rhythm of one second or half a minute. The limit: 0.005 for both together.

#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "backend/BackendActivityStore.h"
#include "backend/BackendStatPoll.h"
#include "helpers/ManualClock.h"
#include "helpers/ManualQueue.h"
#include "helpers/TempHome.h"
#include "support/Files.h"

namespace tessivane {
namespace {

constexpr int sessionCount = 300;
constexpr int repositoryCount = 2'000;

class SampleHome final {
 public:
  SampleHome() {
    for (int i = 0; i < repositoryCount; ++i) {
      const std::string git = fmt::format("code/p{}/.git/", i);
      for (const char* name : {"logs/HEAD", "logs/refs/heads/main"})
        home_.write(git + name, entry, clock_.now());
      home_.write(git + "HEAD", "ref: refs/heads/main\n");
      AgentSession session;
      session.nativeID = std::to_string(i);
      session.projectPath = session.cwd = home_.path(fmt::format("code/p{}", i));
      session.activity = clock_.now();
      if (i < sessionCount) {
        session.transcriptPath =
            home_.write(fmt::format(".claude/projects/s/{}.jsonl", i), "{}\n", clock_.now());
      }
      sessions_.push_back(session);
    }
  }

  const std::vector<AgentSession>& sessions() const { return sessions_; }
  std::set<std::string> transcripts() const {
    std::set<std::string> paths;
    for (int i = 0; i < sessionCount; ++i)
      paths.insert(*sessions_[static_cast<std::size_t>(i)].transcriptPath);
    return paths;
  }
  BackendActivityConfig config() {
    return {.home = home_.path(),
            .dbPath = home_.path("data/activity.sqlite"),
            .t3DBPath = std::nullopt,
            .clock = clock_.clock()};
  }

  ManualClock clock_;
  ManualQueue queue_{clock_};
  TempHome home_;
  ProjectRootResolver roots_{home_.path()};

 private:
  static constexpr const char* entry =
      "0000000000000000000000000000000000000000 1111111111111111111111111111111111111111 "
      "A <a@b> 1759654800 +0000\tcommit (initial): Begin\n";

  std::vector<AgentSession> sessions_;
};

SampleHome& sampleHome() {
  static SampleHome home;
  return home;
}

void setCore(benchmark::State& state, double period) {
  state.counters["core"] =
      benchmark::Counter(static_cast<double>(state.iterations()) * period,
                         benchmark::Counter::kIsRate | benchmark::Counter::kInvert);
}

void BM_bareStats(benchmark::State& state) {
  const auto paths = sampleHome().transcripts();
  for (auto _ : state) {
    for (const std::string& path : paths)
      benchmark::DoNotOptimize(fileStamp(path));
  }
}

void BM_poll(benchmark::State& state) {
  BackendStatPoll poll;
  poll.follow(sampleHome().transcripts());
  for (auto _ : state)
    benchmark::DoNotOptimize(poll.changed());
  setCore(state, 1);
}

// The store without file events, whose sweeps are made to run.
void BM_sweep(benchmark::State& state) {
  SampleHome& home = sampleHome();
  BackendActivityStore store(home.config(), home.queue_, home.roots_);
  store.start([](const auto&, const auto&) {});
  store.sessionsDidRefresh(home.sessions());
  home.queue_.advance(Seconds(10));
  for (auto _ : state) {
    home.clock_.advance(Seconds(30));
    home.queue_.runPending();
  }
  setCore(state, 30);
}

// A refresh that found all as it was.
void BM_refresh(benchmark::State& state) {
  SampleHome& home = sampleHome();
  BackendActivityStore store(home.config(), home.queue_, home.roots_);
  store.start([](const auto&, const auto&) {});
  for (auto _ : state) {
    store.sessionsDidRefresh(home.sessions());
    home.queue_.runPending();
  }
}

BENCHMARK(BM_bareStats)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_poll)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_sweep)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_refresh)->Unit(benchmark::kMicrosecond);

}  // namespace
}  // namespace tessivane
