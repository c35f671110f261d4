// What a delivery costs the activity feed, on the main thread. With 50,000 events stored the limits
// are 30 us for one that is new and 15 ms for all of them again. By turns with each of them its
// bare work is timed; "ratio" is the quotient of the medians. The argument is the number stored;
// 50,000 at "4x", so that the growth can be read off.
//
// - appendNewest: one event, later than all. Bare: its id enters a hash map that has the others,
// and
//   the event a list;
// - appendLate: one event that belongs in the middle. Bare: putting it into a plain list there;
// - redeliver: everything again, equal, in order and in none. Bare: a hash lookup of each id, the
//   comparison, and freeing the delivery, which the feed does too;
// - ageOut: an event has become too old, one comes. Bare: as for appendNewest;
// - visible: the events of an hour out of 48, as the views ask for them. Bare: copying them.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "activity/ActivityFeed.h"
#include "helpers/ManualClock.h"
#include "helpers/ManualQueue.h"
#include "platform/MemoryUserDefaults.h"

namespace tessivane {
namespace {

// Mixed up, and the same in every run.
std::uint64_t scattered(std::uint64_t number) {
  number = (number ^ (number >> 31U)) * 0x9e3779b97f4a7c15ULL;
  return number ^ (number >> 29U);
}

// As large as they come. One in ten is a pull request, a few of those seen on GitHub only.
ActivityEvent eventAt(Date date, std::uint64_t number) {
  const std::uint64_t noise = scattered(number + 1);
  const bool isPullRequest = noise % 10 == 0;
  const std::string root = noise % 1000 == 0
                               ? std::string("github:somebody/project")
                               : fmt::format("/home/somebody/projects/project-{}", noise % 37);
  const std::string ref = fmt::format("{:016x}{:016x}{:08x}", noise, scattered(noise), number);
  ActivityEvent event;
  event.kind = isPullRequest ? ActivityKind::prOpened : ActivityKind::commit;
  event.id = fmt::format("{}:{}:{}", rawValue(event.kind), root, ref);
  event.date = date;
  event.projectRoot = root;
  event.projectName = fmt::format("project-{}", noise % 37);
  event.sessionID = fmt::format("claude:{:016x}-4b1c-9d2e-{:012x}", noise, noise % 11);
  event.sessionTitle = "A title of the usual length, give or take";
  event.owner = Agent::claude;
  event.engine = Agent::claude;
  event.ref = ref;
  event.title = "Do what the subject of a commit says was done";
  if (isPullRequest)
    event.detail = fmt::format("somebody/project-{}#{}", noise % 37, number);
  event.firstSeen = date;
  return event;
}

struct Scene {
  explicit Scene(std::int64_t size) {
    const Date begin = shifted(clock.now(), -ActivityFeed::historySpan);
    spacing = ActivityFeed::historySpan / static_cast<double>(size);
    for (std::int64_t i = 1; i <= size; ++i)
      stored.push_back(
          eventAt(shifted(begin, spacing * static_cast<double>(i)), static_cast<std::uint64_t>(i)));
    feed.append(stored, {}, clock.now());
    queue.runPending();
    for (const ActivityEvent& event : stored)
      known.emplace(event.id, known.size());
    bare = stored;
    next = static_cast<std::uint64_t>(size) + 1;
  }

  ManualClock clock;
  ManualQueue queue{clock};
  MemoryUserDefaults defaults{queue};
  ActivityFeed feed{{.mainQueue = &queue, .defaults = &defaults, .now = clock.clock()}};
  Seconds spacing{};
  std::vector<ActivityEvent> stored;
  std::uint64_t next = 0;

  // Of the bare work.
  std::unordered_map<std::string, std::size_t> known;
  std::vector<ActivityEvent> bare;
};

double median(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::ranges::nth_element(values, middle);
  return *middle;
}

// Medians, as the machine may have other things to do. Each piece of work takes its own copy of
// what `prepare` makes, which is not timed.
template <typename Prepare, typename Work, typename Bare>
void measure(benchmark::State& state, Prepare prepare, Work work, Bare bareWork) {
  using Clock = std::chrono::steady_clock;
  using Microseconds = std::chrono::duration<double, std::micro>;
  std::vector<double> worked;
  std::vector<double> bare;
  for (auto _ : state) {
    auto input = prepare();
    auto copy = input;
    const auto begin = Clock::now();
    work(std::move(input));
    const auto middle = Clock::now();
    bareWork(std::move(copy));
    const auto end = Clock::now();
    state.SetIterationTime(Seconds(middle - begin).count());
    worked.push_back(Microseconds(middle - begin).count());
    bare.push_back(Microseconds(end - middle).count());
  }
  state.counters["median_us"] = median(worked);
  state.counters["bare_us"] = median(bare);
  state.counters["ratio"] = median(worked) / median(bare);
}

using Batch = std::vector<ActivityEvent>;

void takeBare(Scene& scene, Batch batch) {
  scene.known.emplace(batch.front().id, scene.known.size());
  scene.bare.push_back(std::move(batch.front()));
}

void BM_appendNewest(benchmark::State& state) {
  Scene scene(state.range(0));
  measure(
      state,
      [&] { return Batch{eventAt(scene.clock.now(), scene.next++)}; },
      [&](Batch batch) { scene.feed.append(std::move(batch), {}, scene.clock.now()); },
      [&](Batch batch) { takeBare(scene, std::move(batch)); });
}

void BM_appendLate(benchmark::State& state) {
  Scene scene(state.range(0));
  const Date middle = shifted(scene.clock.now(), -ActivityFeed::historySpan / 2);
  measure(
      state,
      [&] { return Batch{eventAt(middle, scene.next++)}; },
      [&](Batch batch) { scene.feed.append(std::move(batch), {}, scene.clock.now()); },
      [&](Batch batch) {
        scene.known.emplace(batch.front().id, scene.known.size());
        scene.bare.insert(scene.bare.begin() + static_cast<std::ptrdiff_t>(scene.bare.size() / 2),
                          std::move(batch.front()));
      });
}

void BM_redeliver(benchmark::State& state, bool inOrder) {
  Scene scene(state.range(0));
  Batch delivery = scene.stored;
  if (!inOrder)
    std::ranges::sort(delivery, {}, &ActivityEvent::ref);
  const std::int64_t revision = scene.feed.eventsRevision();
  measure(
      state,
      [&] { return delivery; },
      [&](Batch batch) { scene.feed.append(std::move(batch), {}, scene.clock.now()); },
      [&](Batch batch) {  // NOLINT(performance-unnecessary-value-param)
        std::size_t equal = 0;
        for (const ActivityEvent& event : batch)
          equal += scene.bare[scene.known.find(event.id)->second] == event ? 1U : 0U;
        if (equal != batch.size())
          state.SkipWithError("the bare work has lost something");
      });
  if (scene.feed.eventsRevision() != revision)
    state.SkipWithError("a revision was spent");
}

void BM_ageOut(benchmark::State& state) {
  Scene scene(state.range(0));
  measure(
      state,
      [&] {
        scene.clock.advance(scene.spacing);
        scene.queue.runPending();
        return Batch{eventAt(scene.clock.now(), scene.next++)};
      },
      [&](Batch batch) { scene.feed.append(std::move(batch), {}, scene.clock.now()); },
      [&](Batch batch) { takeBare(scene, std::move(batch)); });
  if (scene.feed.events().size() > static_cast<std::size_t>(state.range(0)) + 1)
    state.SkipWithError("nothing has aged out");
}

void BM_visible(benchmark::State& state) {
  Scene scene(state.range(0));
  const auto count = static_cast<std::size_t>(state.range(0) / 48);
  measure(
      state,
      [] { return 0; },
      [&](int) { benchmark::DoNotOptimize(scene.feed.visibleEvents(scene.clock.now())); },
      [&](int) {
        benchmark::DoNotOptimize(
            Batch(scene.stored.end() - static_cast<std::ptrdiff_t>(count), scene.stored.end()));
      });
}

void sizes(benchmark::internal::Benchmark* bench) {
  bench->Arg(12'500)->Arg(50'000)->Arg(200'000)->UseManualTime()->Unit(benchmark::kMicrosecond);
}

BENCHMARK(BM_appendNewest)->Apply(sizes);
BENCHMARK(BM_appendLate)->Apply(sizes);
BENCHMARK_CAPTURE(BM_redeliver, inOrder, true)->Apply(sizes);
BENCHMARK_CAPTURE(BM_redeliver, inNone, false)->Apply(sizes);
BENCHMARK(BM_ageOut)->Apply(sizes);
BENCHMARK(BM_visible)->Apply(sizes);

}  // namespace
}  // namespace tessivane
