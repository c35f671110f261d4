#include "platform/TimerSchedule.h"

#include <cmath>
#include <limits>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace tessivane {
namespace {

using std::chrono::milliseconds;
using std::chrono::nanoseconds;
using std::chrono::seconds;

constexpr MonotonicTime at(milliseconds time) {
  return MonotonicTime{time};
}

TEST(TimerScheduleTest, WakesTogetherWithinTheTolerance) {
  struct Case {
    milliseconds due;
    milliseconds tolerance;
    milliseconds wake;
  };
  const Case cases[] = {
      // Without tolerance, or with too little to matter, to the instant.
      {milliseconds{1'234}, milliseconds{0}, milliseconds{1'234}},
      {milliseconds{1'234}, milliseconds{15}, milliseconds{1'234}},
      // Timers of 2, 5 and 30 seconds with a fifth of that as tolerance: they meet at 12 s.
      {milliseconds{11'801}, milliseconds{400}, milliseconds{12'000}},
      {milliseconds{11'750}, milliseconds{400}, milliseconds{11'750}},
      {milliseconds{11'001}, milliseconds{1'000}, milliseconds{12'000}},
      {milliseconds{12'000}, milliseconds{1'000}, milliseconds{12'000}},
      {milliseconds{8'001}, milliseconds{6'000}, milliseconds{12'000}},
      {milliseconds{8'001}, milliseconds{3'999}, milliseconds{10'000}},
  };
  for (const Case& test : cases) {
    EXPECT_EQ(coalescedWake(at(test.due), test.tolerance), at(test.wake))
        << test.due.count() << " with " << test.tolerance.count();
  }
}

TEST(TimerScheduleTest, WakesNeitherTooEarlyNorTooLate) {
  for (MonotonicDuration tolerance{0}; tolerance < seconds{40};
       tolerance = tolerance * 5 / 4 + nanoseconds{1}) {
    for (MonotonicDuration due{0}; due < seconds{100}; due = due * 9 / 8 + nanoseconds{333}) {
      const MonotonicDuration wait =
          coalescedWake(MonotonicTime{due}, tolerance) - MonotonicTime{due};
      ASSERT_GE(wait, nanoseconds{0}) << due.count() << " with " << tolerance.count();
      ASSERT_LE(wait, tolerance) << due.count() << " with " << tolerance.count();
    }
  }
}

TEST(TimerScheduleTest, LatenessNeitherAddsUpNorIsCaughtUp) {
  struct Case {
    milliseconds now;
    milliseconds next;
  };
  // Due at 10 s, every 5 s.
  const Case cases[] = {
      {seconds{10}, seconds{15}},
      {milliseconds{10'900}, seconds{15}},
      {milliseconds{14'999}, seconds{15}},
      {seconds{15}, seconds{20}},
      {milliseconds{31'000}, seconds{35}},
      {std::chrono::hours{10}, std::chrono::hours{10} + seconds{5}},
      // Nothing runs early, but were it so, the next time would still be a later one.
      {seconds{9}, seconds{15}},
  };
  for (const Case& test : cases)
    EXPECT_EQ(nextDue(at(seconds{10}), seconds{5}, at(test.now)), at(test.next))
        << test.now.count();
}

TEST(TimerScheduleTest, TakesAnyNumberOfSeconds) {
  constexpr double infinity = std::numeric_limits<double>::infinity();
  const milliseconds least{1};
  const auto duration = [least](double value) { return timerDuration(Seconds{value}, least); };
  EXPECT_EQ(duration(2.5), milliseconds{2'500});
  for (const double small : {0.0, 0.0005, -3.0, -1e300, -infinity, std::nan("")})
    EXPECT_EQ(duration(small), least) << small;
  for (const double large : {1e10, 1e300, infinity})
    EXPECT_EQ(duration(large), std::chrono::years{100}) << large;
}

}  // namespace
}  // namespace tessivane
