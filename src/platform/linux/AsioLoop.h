#pragma once

// What the live queues have in common: an Asio context and the three operations of a task queue
// upon it. For the sources of this folder only; Asio stays out of every other header.
//
// Posting is safe on every thread; one thread runs the loop. Handles know the loop weakly.

#include <functional>
#include <memory>
#include <string>
#include <thread>

#include <asio/executor_work_guard.hpp>
#include <asio/io_context.hpp>

#include "platform/TaskQueue.h"
#include "platform/TimerSchedule.h"

namespace tessivane {

class AsioLoop final : public std::enable_shared_from_this<AsioLoop> {
 public:
  /// Only in a shared pointer.
  static std::shared_ptr<AsioLoop> make() { return std::shared_ptr<AsioLoop>(new AsioLoop()); }

  asio::io_context& context() { return context_; }

  void async(TaskQueue::Task task);
  TaskHandle after(Seconds delay, TaskQueue::Task task);
  TaskHandle every(Seconds interval, Seconds tolerance, TaskQueue::Task task);

  /// Runs tasks until `stop`, also while there are none. Returns at once when already stopped.
  void run() { context_.run(); }
  /// The task that runs is the last one. What waits is dropped with the loop.
  void stop() { context_.stop(); }

 private:
  struct Timer;

  AsioLoop() : work_(context_.get_executor()) {}
  TaskHandle start(const std::shared_ptr<Timer>& timer);
  void arm(const std::shared_ptr<Timer>& timer);

  // Not told that one thread alone runs it: Asio would then let a task posted by a running task
  // overtake one that another thread has posted before.
  asio::io_context context_;
  asio::executor_work_guard<asio::io_context::executor_type> work_;
};

/// A thread that runs a loop for as long as it lives.
class AsioThread final {
 public:
  /// Tools that list threads show the first 15 characters of `name`.
  explicit AsioThread(const std::string& name);
  AsioThread(const AsioThread&) = delete;
  AsioThread& operator=(const AsioThread&) = delete;
  /// As `stop`.
  ~AsioThread() { stop(); }

  AsioLoop& loop() { return *loop_; }

  /// Ends the loop and waits for the task that runs, unless that is the caller.
  void stop();

 private:
  std::shared_ptr<AsioLoop> loop_ = AsioLoop::make();
  std::thread thread_;
};

}  // namespace tessivane
