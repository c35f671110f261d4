// What Rush costs with a thousand sessions, on every list that the store publishes. The limit is
// 0.2 ms for `queue` and for `sync`. By turns with each of them a bare pass over the same list is
// timed, one that only looks at what decides whether a session waits and copies its id; the counter
// "ratio" is their quotient.
//
// - new: everybody waits, nobody has been dealt;
// - mixed: a working day, see `mixedDay`;
// - today: the same, with the filter that must ask the calendar;
// - full: everybody waits and has an entry in every map;
// - deals: mixed, and every `sync` finds the seated session at work;
// - departed: mixed, with as many done sessions that the list no longer has.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "rush/RushTable.h"

namespace tessivane {
namespace {

constexpr std::size_t sessionCount = 1000;

struct Scene {
  Date now = *isoDate("2026-10-05T15:00:00Z");
  Calendar calendar = Calendar("Europe/Berlin");
  std::vector<AgentSession> sessions = {};
  RushTable table = {};
};

// Mixed up, and the same in every run.
std::uint64_t scattered(std::uint64_t number) {
  number = (number ^ (number >> 31U)) * 0x9e3779b97f4a7c15ULL;
  return number ^ (number >> 29U);
}

// Sessions as large as they come, active at any time of the last three hours, one in three with a
// request.
Scene allWaiting() {
  Scene scene;
  for (std::size_t i = 0; i < sessionCount; ++i) {
    const std::uint64_t noise = scattered(i + 1);
    scene.sessions.push_back(
        {.agent = allAgents.at(noise % allAgents.size()),
         .nativeID = fmt::format("{:016x}-4b1c-9d2e-{:012x}", noise, i),
         .title = "A title of the usual length, give or take",
         .cwd = fmt::format("/home/somebody/projects/project-{}", noise % 40),
         .projectPath = fmt::format("/home/somebody/projects/project-{}", noise % 40),
         .activity = scene.now - std::chrono::milliseconds(noise % 10'800'000),
         .status = i % 3 == 0 ? SessionStatus::needsYou : SessionStatus::yourTurn,
         .lastMessage = std::string(AgentSession::maxMessageCharacters, 'm')});
  }
  return scene;
}

// A tenth each works, is idle, was spawned by an agent, was marked done, is snoozed; of the others
// every second one was dealt before. The first session is seated.
Scene mixedDay() {
  Scene scene = allWaiting();
  for (std::size_t i = 1; i < sessionCount; ++i) {
    AgentSession& session = scene.sessions[i];
    if (i % 10 == 1)
      session.status = SessionStatus::working;
    if (i % 10 == 2)
      session.status = SessionStatus::idle;
    if (i % 10 == 3)
      session.kind = SessionKind::subagent;
    if (i % 10 == 4)
      scene.table.done[session.id()] = session.activity;
    if (i % 10 == 5)
      scene.table.snoozed[session.id()] = {scene.now + std::chrono::hours(1), true};
    if (i % 10 >= 6 && i % 2 == 0)
      scene.table.dealOrder[session.id()] = scene.table.nextDeal++;
  }
  scene.table.seat = scene.sessions.front();
  return scene;
}

Scene mixedToday() {
  Scene scene = mixedDay();
  scene.table.filter.window = RushFilter::Window::today;
  return scene;
}

Scene everyMapFull() {
  Scene scene = allWaiting();
  for (const AgentSession& session : scene.sessions) {
    scene.table.done[session.id()] = session.activity - std::chrono::seconds(1);
    scene.table.snoozed[session.id()] = {scene.now - std::chrono::seconds(1), true};
    scene.table.dealOrder[session.id()] = scene.table.nextDeal++;
  }
  std::ranges::reverse(scene.sessions);
  return scene;
}

// As `sync` leaves it: the same entries, but all in force.
Scene everyMapFullAndSeated() {
  Scene scene = everyMapFull();
  for (const AgentSession& session : scene.sessions) {
    scene.table.done[session.id()] = session.activity;
    scene.table.snoozed[session.id()].until = scene.now + std::chrono::hours(1);
  }
  scene.table.seat = scene.sessions.front();
  return scene;
}

Scene departed() {
  Scene scene = mixedDay();
  for (std::size_t i = 0; i < sessionCount; ++i)
    scene.table.done[fmt::format("codex:departed-with-a-long-name-{}", i)] = scene.now;
  return scene;
}

void barePass(const Scene& scene) {
  std::string id;
  std::int64_t sum = 0;
  for (const AgentSession& session : scene.sessions) {
    id = session.nativeID;
    benchmark::DoNotOptimize(id.data());
    if (session.status != SessionStatus::idle && session.kind == SessionKind::session)
      sum += session.activity.time_since_epoch().count();
  }
  benchmark::DoNotOptimize(sum);
}

double median(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::ranges::nth_element(values, middle);
  return *middle;
}

// Medians, as the machine may have other things to do.
template <typename Work>
void measure(benchmark::State& state, const Scene& scene, const Work& work) {
  using Microseconds = std::chrono::duration<double, std::micro>;
  std::vector<double> worked;
  std::vector<double> bare;
  for (auto _ : state) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    const auto middle = std::chrono::steady_clock::now();
    barePass(scene);
    const auto end = std::chrono::steady_clock::now();
    state.SetIterationTime(Seconds(middle - begin).count());
    worked.push_back(Microseconds(middle - begin).count());
    bare.push_back(Microseconds(end - middle).count());
  }
  state.counters["median_us"] = median(worked);
  state.counters["bare_us"] = median(bare);
  state.counters["ratio"] = median(worked) / median(bare);
}

void BM_queue(benchmark::State& state, Scene (*make)()) {
  const Scene scene = make();
  measure(state, scene, [&] {
    benchmark::DoNotOptimize(scene.table.queue(scene.sessions, scene.now, scene.calendar));
  });
}

void BM_sync(benchmark::State& state, Scene (*make)()) {
  Scene scene = make();
  measure(state, scene, [&] {
    benchmark::DoNotOptimize(scene.table.sync(scene.sessions, scene.now, scene.calendar));
  });
}

// Seating the one who works is part of the figure: a copy of one session.
void BM_syncDeals(benchmark::State& state) {
  Scene scene = mixedDay();
  const AgentSession& worker = scene.sessions[1];
  measure(state, scene, [&] {
    scene.table.seat = worker;
    const auto change = scene.table.sync(scene.sessions, scene.now, scene.calendar);
    if (change.kind != RushChange::Kind::dealt)
      state.SkipWithError("nobody was dealt");
  });
}

BENCHMARK_CAPTURE(BM_queue, new, allWaiting)->UseManualTime();
BENCHMARK_CAPTURE(BM_queue, mixed, mixedDay)->UseManualTime();
BENCHMARK_CAPTURE(BM_queue, today, mixedToday)->UseManualTime();
BENCHMARK_CAPTURE(BM_queue, full, everyMapFull)->UseManualTime();
BENCHMARK_CAPTURE(BM_sync, mixed, mixedDay)->UseManualTime();
BENCHMARK_CAPTURE(BM_sync, full, everyMapFullAndSeated)->UseManualTime();
BENCHMARK_CAPTURE(BM_sync, departed, departed)->UseManualTime();
BENCHMARK(BM_syncDeals)->UseManualTime()->Name("BM_sync/deals");

}  // namespace
}  // namespace tessivane
