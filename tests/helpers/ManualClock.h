#pragma once

// A clock that stands still until the test moves it. For one thread. It must outlive what was given
// its `clock()`.

#include "support/Date.h"

namespace tessivane {

class ManualClock final {
 public:
  /// A Monday morning, for tests that do not care which.
  static constexpr Date defaultStart =
      std::chrono::sys_days{std::chrono::year{2026} / 10 / 5} + std::chrono::hours{9};

  explicit ManualClock(Date start = defaultStart) : now_(start) {}
  ManualClock(const ManualClock&) = delete;
  ManualClock& operator=(const ManualClock&) = delete;
  ~ManualClock() = default;

  Date now() const { return now_; }
  /// The clock as the classes under test take it.
  Clock clock() {
    return [this] { return now_; };
  }

  /// Time passes. Queues notice when they are next run.
  void advance(Seconds duration) {
    const auto step = std::chrono::round<std::chrono::microseconds>(duration);
    now_ += step;
    uptime_ += step;
  }

  /// Somebody sets the clock: the date jumps, timers notice nothing.
  void set(Date now) { now_ = now; }

  /// How much time has passed, whatever the date was set to.
  std::chrono::microseconds uptime() const { return uptime_; }

 private:
  Date now_;
  std::chrono::microseconds uptime_{0};
};

}  // namespace tessivane
