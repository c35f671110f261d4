#include "platform/SystemClock.h"

#include <limits>
#include <thread>

#include <gtest/gtest.h>

namespace tessivane {
namespace {

using std::chrono::steady_clock;

TEST(SleepFor, LastsUntilItsTimeIsUp) {
  const auto start = steady_clock::now();
  sleepFor(Seconds(0.02), {});
  EXPECT_GE(steady_clock::now() - start, std::chrono::milliseconds(20));
  sleepFor(Seconds(0), {});
  sleepFor(Seconds(-std::numeric_limits<double>::max()), {});
}

TEST(SleepFor, EndsOnRequest) {
  const auto start = steady_clock::now();
  for (const double duration : {60.0, std::numeric_limits<double>::max()}) {
    std::stop_source stop;
    std::thread sleeper([&] { sleepFor(Seconds(duration), stop.get_token()); });
    stop.request_stop();
    sleeper.join();
    sleepFor(Seconds(duration), stop.get_token());
  }
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(30));
}

}  // namespace
}  // namespace tessivane
