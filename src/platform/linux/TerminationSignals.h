#pragma once

// Turns SIGTERM, SIGINT and SIGHUP into tasks, for as long as it lives. A small thread waits for
// them, so that it serves a main queue of any kind, whatever the main thread is doing meanwhile.

#include <functional>
#include <memory>

#include "platform/TaskQueue.h"

namespace tessivane {

class TerminationSignals final {
 public:
  /// For each signal that arrives, `told` runs as a task of `queue`, which must outlive this. Two
  /// of the same kind in quick succession may come as one. Children that are started do not inherit
  /// any of this.
  TerminationSignals(TaskQueue& queue, std::function<void(int signal)> told);
  TerminationSignals(const TerminationSignals&) = delete;
  TerminationSignals& operator=(const TerminationSignals&) = delete;
  /// The signals do again what the system does by default. On the thread of the queue, so that
  /// nothing is told afterwards.
  ~TerminationSignals();

 private:
  struct Waiter;
  std::unique_ptr<Waiter> waiter_;
};

}  // namespace tessivane
