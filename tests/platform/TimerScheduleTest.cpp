#include "platform/TimerSchedule.h"

#include <cmath>
#include <limits>

#include <gtest/gtest.h>

namespace tessivane {
namespace {

using namespace std::chrono_literals;
using std::chrono::nanoseconds;

constexpr MonotonicTime at(nanoseconds time) {
  return MonotonicTime{time};
}

TEST(TimerScheduleTest, WakesTogetherWithinTheTolerance) {
  struct Row {
    nanoseconds due, tolerance, wake;
  };
  const Row rows[] = {
      // Without tolerance, or with too little to matter, to the instant.
      {1'234ms, 0ms, 1'234ms},
      {1'234ms, 15ms, 1'234ms},
      // Timers of 2, 5 and 30 seconds with a fifth of that as tolerance: they meet at 12 s.
      {11'801ms, 400ms, 12s},
      {11'750ms, 400ms, 11'750ms},
      {11'001ms, 1s, 12s},
      {12s, 1s, 12s},
      {8'001ms, 6s, 12s},
      {8'001ms, 3'999ms, 10s}};
  for (const auto& [due, tolerance, wake] : rows) {
    EXPECT_EQ(coalescedWake(at(due), tolerance), at(wake))
        << due.count() << " with " << tolerance.count();
  }
}

TEST(TimerScheduleTest, WakesNeitherTooEarlyNorTooLate) {
  for (MonotonicDuration tolerance{0}; tolerance < 40s; tolerance = tolerance * 5 / 4 + 1ns) {
    for (MonotonicDuration due{0}; due < 100s; due = due * 9 / 8 + 333ns) {
      const MonotonicDuration wait = coalescedWake(at(due), tolerance) - at(due);
      ASSERT_GE(wait, 0ns) << due.count() << " with " << tolerance.count();
      ASSERT_LE(wait, tolerance) << due.count() << " with " << tolerance.count();
    }
  }
}

TEST(TimerScheduleTest, LatenessNeitherAddsUpNorIsCaughtUp) {
  // Due at 10 s, every 5 s.
  const std::pair<nanoseconds, nanoseconds> rows[] = {
      {10s, 15s},
      {10'900ms, 15s},
      {14'999ms, 15s},
      {15s, 20s},
      {31s, 35s},
      {10h, 10h + 5s},
      // Nothing runs early, but were it so, the next time would still be a later one.
      {9s, 15s}};
  for (const auto& [now, next] : rows)
    EXPECT_EQ(nextDue(at(10s), 5s, at(now)), at(next)) << now.count();
}

TEST(TimerScheduleTest, TakesAnyNumberOfSeconds) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  const auto duration = [](double value) { return timerDuration(Seconds{value}, 1ms); };
  EXPECT_EQ(duration(2.5), 2'500ms);
  for (const double small : {0.0, 0.0005, -3.0, -1e300, -infinity, std::nan("")})
    EXPECT_EQ(duration(small), 1ms) << small;
  for (const double large : {1e10, 1e300, infinity})
    EXPECT_EQ(duration(large), std::chrono::years{100}) << large;
}

}  // namespace
}  // namespace tessivane
