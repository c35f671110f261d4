#include "platform/SystemClock.h"

#include <algorithm>
#include <condition_variable>
#include <mutex>

namespace tessivane {

Date systemNow() {
  return std::chrono::floor<std::chrono::microseconds>(std::chrono::system_clock::now());
}

void sleepFor(Seconds duration, const std::stop_token& stop) {
  std::mutex mutex;
  std::condition_variable_any condition;
  std::unique_lock lock(mutex);
  const Seconds bounded = std::clamp(duration, Seconds(0), Seconds(std::chrono::hours(24)));
  // Nobody but the stop wakes it.
  condition.wait_for(lock, stop, bounded, [] { return false; });
}

}  // namespace tessivane
