#include "platform/TimerSchedule.h"

#include <algorithm>

namespace tessivane {

namespace {

constexpr Seconds longest = std::chrono::years{100};

// The finest grid: below it nothing is gained by waking together.
constexpr MonotonicDuration finestGrid = std::chrono::microseconds{15'625};  // 1/64 s

}  // namespace

MonotonicDuration timerDuration(Seconds seconds, MonotonicDuration least) {
  // Also when it is not a number.
  if (!(seconds > least))
    return least;
  return std::chrono::duration_cast<MonotonicDuration>(std::min(seconds, longest));
}

MonotonicTime coalescedWake(MonotonicTime due, MonotonicDuration tolerance) {
  if (tolerance < finestGrid)
    return due;
  MonotonicDuration grid = finestGrid;
  while (grid <= tolerance / 2)
    grid *= 2;
  const MonotonicDuration past = due.time_since_epoch() % grid;
  return past == MonotonicDuration::zero() ? due : due + (grid - past);
}

MonotonicTime nextDue(MonotonicTime due, MonotonicDuration interval, MonotonicTime now) {
  const MonotonicDuration late = std::max(now - due, MonotonicDuration::zero());
  return due + interval * (1 + late / interval);
}

}  // namespace tessivane
