#include "platform/linux/AsioLoop.h"

#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <utility>

#include <asio/error_code.hpp>
#include <asio/post.hpp>
#include <asio/steady_timer.hpp>

namespace tessivane {

struct AsioLoop::Timer {
  asio::steady_timer clock;
  TaskQueue::Task task;
  MonotonicTime due;
  /// Zero for a task that runs once.
  MonotonicDuration interval{0};
  MonotonicDuration tolerance{0};
  /// Shared with the handle, which must not keep the timer: that may not outlive the context.
  std::shared_ptr<std::atomic<bool>> cancelled = std::make_shared<std::atomic<bool>>(false);
};

void AsioLoop::async(TaskQueue::Task task) {
  asio::post(context_, std::move(task));
}

TaskHandle AsioLoop::after(Seconds delay, TaskQueue::Task task) {
  auto timer = std::make_shared<Timer>(Timer{asio::steady_timer(context_), std::move(task), {}});
  timer->due = std::chrono::steady_clock::now() + timerDuration(delay, MonotonicDuration::zero());
  return start(timer);
}

TaskHandle AsioLoop::every(Seconds interval, Seconds tolerance, TaskQueue::Task task) {
  auto timer = std::make_shared<Timer>(Timer{asio::steady_timer(context_), std::move(task), {}});
  timer->interval = timerDuration(interval, std::chrono::milliseconds{1});
  timer->tolerance = std::min(timerDuration(tolerance, MonotonicDuration::zero()), timer->interval);
  timer->due = std::chrono::steady_clock::now() + timer->interval;
  return start(timer);
}

TaskHandle AsioLoop::start(const std::shared_ptr<Timer>& timer) {
  arm(timer);
  return TaskHandle([cancelled = timer->cancelled,
                     weakTimer = std::weak_ptr<Timer>(timer),
                     weakLoop = weak_from_this()] {
    *cancelled = true;
    // Timers are touched on the loop's thread only. This lets go of what the task captured.
    const auto loop = weakLoop.lock();
    if (loop == nullptr || weakTimer.expired())
      return;
    loop->async([weakTimer] {
      if (const auto waiting = weakTimer.lock())
        waiting->clock.cancel();
    });
  });
}

void AsioLoop::arm(const std::shared_ptr<Timer>& timer) {
  timer->clock.expires_at(coalescedWake(timer->due, timer->tolerance));
  timer->clock.async_wait([this, timer](const asio::error_code&) {
    if (*timer->cancelled)
      return;
    timer->task();
    if (timer->interval == MonotonicDuration::zero())
      return;
    // Measured after the task, so that a task slower than its interval does not starve the others.
    timer->due = nextDue(timer->due, timer->interval, std::chrono::steady_clock::now());
    arm(timer);
  });
}

AsioThread::AsioThread(const std::string& name)
    : thread_([loop = loop_, name = name.substr(0, 15)] {
        ::pthread_setname_np(::pthread_self(), name.c_str());
        loop->run();
      }) {}

void AsioThread::stop() {
  loop_->stop();
  if (!thread_.joinable())
    return;
  // A task may hold the last reference to the owner of its own thread. The thread keeps the loop.
  if (thread_.get_id() == std::this_thread::get_id())
    thread_.detach();
  else
    thread_.join();
}

}  // namespace tessivane
