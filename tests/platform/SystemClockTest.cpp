#include "platform/SystemClock.h"

#include <limits>
#include <thread>

#include <gtest/gtest.h>

namespace tessivane {
namespace {

TEST(SleepFor, LastsUntilItsTimeIsUpOrItIsToldToEnd) {
  const auto start = std::chrono::steady_clock::now();
  sleepFor(Seconds(0.02), {});
  EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(20));
  constexpr double most = std::numeric_limits<double>::max();
  for (const double duration : {0.0, -most})
    sleepFor(Seconds(duration), {});
  for (const double duration : {60.0, most}) {
    std::stop_source stop;
    std::thread sleeper([&] { sleepFor(Seconds(duration), stop.get_token()); });
    stop.request_stop();
    sleeper.join();
  }
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
}

}  // namespace
}  // namespace tessivane
