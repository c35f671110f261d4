// What the flow and the lanes cost on each change of the feed, at 5,000, 20,000 and 80,000 events
// of 30 projects, to read the growth off. At 20,000 the limits are 1 ms for `FlowModel::make` and
// 3 ms for `LanesGrouping::sections`; `LanesStreamCache::update` with nothing changed may take 5
// us. By turns with each of them the bare work on the same events is timed:
//
// - flow: reading kind, date and root of every event;
// - sections: reading kind and date of every event, and hashing the session of every commit;
// - update: looking up both ends of the span among the sorted events.
//
// The counter "ratio" is the quotient of the medians.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <functional>
#include <string>
#include <string_view>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "activity/FlowModel.h"
#include "activity/LanesGrouping.h"
#include "activity/LanesStreamCache.h"

namespace tessivane {
namespace {

constexpr std::size_t projectCount = 30;
constexpr Date now =
    std::chrono::sys_days{std::chrono::year{2026} / 10 / 5} + std::chrono::hours{15};

// Mixed up, and the same in every run.
std::uint64_t scattered(std::uint64_t number) {
  number = (number ^ (number >> 31U)) * 0x9e3779b97f4a7c15ULL;
  return number ^ (number >> 29U);
}

std::string projectRoot(std::uint64_t number) {
  return fmt::format("/home/somebody/projects/project-{}", number);
}

// Six hours, ascending, as the feed has them; two in three are commits. A tenth share their second
// with another one.
std::vector<ActivityEvent> sixHours(std::size_t count) {
  std::vector<ActivityEvent> events;
  for (std::size_t i = 0; i < count; ++i) {
    const std::uint64_t noise = scattered(i + 1);
    const std::string root = projectRoot(noise % projectCount);
    const std::string hash = fmt::format("{:016x}{:016x}{:08x}", noise, scattered(noise), i);
    const ActivityKind kind =
        noise % 3 < 2 ? ActivityKind::commit : allActivityKinds.at(noise / 3 % 7);
    const std::chrono::microseconds age(21'600'000'000 / count * (count - i - i % 10 / 9));
    events.push_back(ActivityEvent{.id = fmt::format("{}:{}:{}", rawValue(kind), root, hash),
                                   .kind = kind,
                                   .date = now - age,
                                   .projectRoot = root,
                                   .projectName = fmt::format("project-{}", noise % projectCount),
                                   .sessionID = fmt::format("claude:session-{:020}", noise % 120),
                                   .sessionTitle = "A title of the usual length, give or take",
                                   .ref = hash,
                                   .title = "A subject of the usual length, give or take"});
  }
  return events;
}

FlowInput flowInput(const std::vector<ActivityEvent>& events) {
  FlowInput input{.events = events,
                  .kinds = {allActivityKinds.begin(), allActivityKinds.end()},
                  .range = ActivityRange::h6,
                  .end = now,
                  .now = now};
  for (std::size_t i = 0; i < projectCount; ++i)
    input.projects.push_back(projectRoot(i));
  return input;
}

LanesStreamInput lanesInput(const std::vector<ActivityEvent>& events) {
  const FlowInput flow = flowInput(events);
  return {.events = events,
          .revision = 1,
          .kinds = flow.kinds,
          .projects = {flow.projects.begin(), flow.projects.end()},
          .start = now - std::chrono::hours(5),
          .end = now,
          .bucket = Seconds(600)};
}

double median(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::ranges::nth_element(values, middle);
  return *middle;
}

// Medians, as the machine may have other things to do.
template <typename Work, typename Bare>
void measure(benchmark::State& state, const Work& work, const Bare& bare) {
  using Microseconds = std::chrono::duration<double, std::micro>;
  std::vector<double> worked;
  std::vector<double> bareTimes;
  for (auto _ : state) {
    const auto begin = std::chrono::steady_clock::now();
    work();
    const auto middle = std::chrono::steady_clock::now();
    bare();
    const auto end = std::chrono::steady_clock::now();
    state.SetIterationTime(Seconds(middle - begin).count());
    worked.push_back(Microseconds(middle - begin).count());
    bareTimes.push_back(Microseconds(end - middle).count());
  }
  state.counters["median_us"] = median(worked);
  state.counters["bare_us"] = median(bareTimes);
  state.counters["ratio"] = median(worked) / median(bareTimes);
}

void BM_flowModel(benchmark::State& state) {
  const auto events = sixHours(static_cast<std::size_t>(state.range(0)));
  const FlowInput input = flowInput(events);
  measure(
      state,
      [&] { benchmark::DoNotOptimize(FlowModel::make(input)); },
      [&] {
        std::int64_t sum = 0;
        for (const ActivityEvent& event : events) {
          if (event.kind != ActivityKind::started && event.date <= input.now)
            sum += event.projectRoot.back() + event.date.time_since_epoch().count() % 7;
        }
        benchmark::DoNotOptimize(sum);
      });
}

void BM_sections(benchmark::State& state) {
  const auto events = sixHours(static_cast<std::size_t>(state.range(0)));
  std::vector<const ActivityEvent*> pointers;
  for (const ActivityEvent& event : events)
    pointers.push_back(&event);
  const auto bare = [&] {
    std::size_t sum = 0;
    for (const ActivityEvent* event : pointers) {
      if (event->kind == ActivityKind::commit && event->date <= now)
        sum += std::hash<std::string_view>{}(*event->sessionID);
    }
    benchmark::DoNotOptimize(sum);
  };
  const Seconds bucket(static_cast<double>(state.range(1)));
  measure(
      state, [&] { benchmark::DoNotOptimize(LanesGrouping::sections(pointers, bucket)); }, bare);
}

void BM_updateUnchanged(benchmark::State& state) {
  const auto events = sixHours(static_cast<std::size_t>(state.range(0)));
  const LanesStreamInput input = lanesInput(events);
  LanesStreamCache cache;
  cache.update(input);
  measure(
      state,
      [&] { cache.update(input); },
      [&] {
        for (const Date date : {input.start, input.end})
          benchmark::DoNotOptimize(
              std::ranges::upper_bound(events, date, {}, &ActivityEvent::date));
      });
  if (cache.groupings() != 1)
    state.SkipWithError("something has changed");
}

BENCHMARK(BM_flowModel)->Name("flow_model")->Arg(5000)->Arg(20'000)->Arg(80'000)->UseManualTime();
// Buckets of ten minutes, where commits fold, and of a second, where hardly any do.
BENCHMARK(BM_sections)
    ->Name("sections")
    ->ArgsProduct({{5000, 20'000, 80'000}, {600, 1}})
    ->UseManualTime();
BENCHMARK(BM_updateUnchanged)
    ->Name("update_unchanged")
    ->Arg(5000)
    ->Arg(20'000)
    ->Arg(80'000)
    ->UseManualTime();

}  // namespace
}  // namespace tessivane
