// What a timeline costs: 2,000 visible events and 1,000 edit buckets in 1600 by 600 points, and 4
// and 16 times as many. The limit is 2 ms for `make` with every width known, and 20 microseconds
// for `hitTest` among 2,000 items. By turns with `make` a bare copy of the same lists is timed,
// which is what anybody pays who hands such lists on; the counter "ratio" is their quotient.
//
// - known: every text was measured before;
// - kept: the same, and every card had a row before;
// - cold: no text was measured before, by a measure that costs next to nothing.

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include <benchmark/benchmark.h>
#include <fmt/format.h>

#include "activity/TimelineLayout.h"

namespace tessivane {
namespace {

constexpr std::uint64_t eventsAtOnce = 2000;
constexpr std::uint64_t editsAtOnce = 1000;

// Mixed up, and the same in every run.
std::uint64_t scattered(std::uint64_t number) {
  number = (number ^ (number >> 31U)) * 0x9e3779b97f4a7c15ULL;
  return number ^ (number >> 29U);
}

double widthOf(std::string_view text, TimelineTextStyle) {
  return 6.0 * static_cast<double>(text.size());
}

// Somewhere in the hour that ends now.
Date dateOf(std::uint64_t noise, Date now) {
  return now - std::chrono::microseconds(noise % 3'600'000'000);
}

// A thousand titles and refs recur, so that at no scale the memory of the measure runs over.
ActivityEvent eventOf(std::uint64_t number, ActivityKind kind, Date now) {
  const std::uint64_t noise = scattered(number + 1);
  return {.id = fmt::format("{}:/home/somebody/project:{:016x}", rawValue(kind), noise),
          .kind = kind,
          .date = dateOf(noise, now),
          .projectRoot = fmt::format("/home/somebody/projects/project-{}", noise % 30),
          .projectName = fmt::format("project-{}", noise % 30),
          .sessionID = fmt::format("claude:session-{}", noise % 60),
          .sessionTitle = fmt::format("What the person asked for at first, no. {}", noise % 60),
          .ref = fmt::format("{:07x}3f1a6b0c5d9e2f7a", noise % 1000),
          .title = fmt::format("Say {} what was changed, as commit messages do", noise % 1000),
          .detail = "The second line of a card",
          .firstSeen = now};
}

EditBucket editsOf(std::uint64_t number, Date now) {
  const std::uint64_t noise = scattered(number + 1);
  EditBucket bucket{.projectRoot = fmt::format("/home/somebody/projects/project-{}", noise % 30),
                    .projectName = fmt::format("project-{}", noise % 30),
                    .sessionID = fmt::format("claude:session-{}", noise % 60),
                    .start = std::chrono::floor<std::chrono::minutes>(dateOf(noise, now)),
                    .files = static_cast<std::int64_t>(noise % 9)};
  for (std::uint64_t i = 0; i < 3; ++i)
    bucket.paths.push_back(
        fmt::format("/home/somebody/projects/src/file-{}.cpp", (noise + i) % 40));
  return bucket;
}

TimelineInput inputOf(std::uint64_t scale, bool withCommits) {
  const Date now = *isoDate("2026-10-05T15:00:00Z");
  TimelineInput input{.size = {.width = 1600, .height = 600}, .end = now, .now = now};
  input.measure = cached({.width = widthOf});
  for (std::uint64_t i = 0; i < eventsAtOnce * scale; ++i) {
    const bool isCommit = withCommits && i % 2 == 0;
    const ActivityKind kind = isCommit ? ActivityKind::commit : allActivityKinds.at(1 + i / 2 % 6);
    input.events.push_back(eventOf(i, kind, now));
  }
  for (std::uint64_t i = 0; i < editsAtOnce * scale; ++i)
    input.edits.push_back(editsOf(i, now));
  for (int i = 0; i < 30; ++i)
    input.projectOrder.push_back(fmt::format("/home/somebody/projects/project-{}", i));
  std::ranges::sort(input.events, {}, &ActivityEvent::date);
  return input;
}

double median(std::vector<double>& values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::ranges::nth_element(values, middle);
  return *middle;
}

enum class Memory { known, kept, cold };

void BM_make(benchmark::State& state, Memory memory) {
  using Milliseconds = std::chrono::duration<double, std::milli>;
  TimelineInput input = inputOf(static_cast<std::uint64_t>(state.range(0)), true);
  const TimelineLayout first = TimelineLayout::make(input);
  if (memory == Memory::kept)
    input.previousRows = first.rows;
  std::vector<double> worked;
  std::vector<double> bare;
  for (auto _ : state) {
    if (memory == Memory::cold)
      input.measure = cached({.width = widthOf});
    const auto begin = std::chrono::steady_clock::now();
    TimelineInput copy = input;
    const auto middle = std::chrono::steady_clock::now();
    const TimelineLayout layout = TimelineLayout::make(std::move(copy));
    const auto end = std::chrono::steady_clock::now();
    if (layout.items.size() != first.items.size())
      state.SkipWithError("the layouts differ");
    state.SetIterationTime(Seconds(end - middle).count());
    worked.push_back(Milliseconds(end - middle).count());
    bare.push_back(Milliseconds(middle - begin).count());
  }
  state.counters["items"] = static_cast<double>(first.items.size());
  state.counters["cards"] = static_cast<double>(first.rows.size());
  state.counters["median_ms"] = median(worked);
  state.counters["bare_ms"] = median(bare);
  state.counters["ratio"] = median(worked) / median(bare);
}

// Every event has an item of its own. Points all over the view; most hit nothing and so are
// compared with everything.
void BM_hitTest(benchmark::State& state) {
  const TimelineLayout layout =
      TimelineLayout::make(inputOf(static_cast<std::uint64_t>(state.range(0)), false));
  std::uint64_t number = 0;
  for (auto _ : state) {
    const std::uint64_t noise = scattered(++number);
    const TimelinePoint point{.x = static_cast<double>(noise % 1600),
                              .y = static_cast<double>(noise / 1600 % 600)};
    benchmark::DoNotOptimize(layout.hitTest(point));
  }
  state.counters["items"] = static_cast<double>(layout.items.size());
}

BENCHMARK_CAPTURE(BM_make, known, Memory::known)->RangeMultiplier(4)->Range(1, 16)->UseManualTime();
BENCHMARK_CAPTURE(BM_make, kept, Memory::kept)->RangeMultiplier(4)->Range(1, 16)->UseManualTime();
BENCHMARK_CAPTURE(BM_make, cold, Memory::cold)->RangeMultiplier(4)->Range(1, 16)->UseManualTime();
BENCHMARK(BM_hitTest)->RangeMultiplier(4)->Range(1, 16);

}  // namespace
}  // namespace tessivane
