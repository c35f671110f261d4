#pragma once

// The conductor of the activity backend: takes each new session list, follows the files behind it,
// has them scanned, stores what happened and hands what is new to the feed, at most one batch a
// second. The operations are safe on every thread; they return at once, and the work is done by
// `BackendActivityCore` on the activity queue. One for the process, owned by the wiring.
//
// Without a database nothing is stored or told, and it is tried again, in silence. One that is
// damaged is set aside for a new one, which is reported.

#include <functional>
#include <memory>
#include <vector>

#include "activity/ActivitySource.h"
#include "backend/BackendActivityConfig.h"
#include "backend/BackendTransitionDetector.h"
#include "platform/TaskQueue.h"
#include "sessions/AgentSession.h"
#include "sessions/ProjectRootResolver.h"
#include "support/Date.h"
#include "support/Mutex.h"

namespace tessivane {

class BackendActivityStore final {
 public:
  using BatchHandler = ActivitySource::BatchHandler;

  /// `queue`, the serial queue "tessivane.activity", and `roots` outlive it.
  BackendActivityStore(BackendActivityConfig config, TaskQueue& queue, ProjectRootResolver& roots);
  BackendActivityStore(const BackendActivityStore&) = delete;
  BackendActivityStore& operator=(const BackendActivityStore&) = delete;
  /// What waits on the queue is not done any more.
  ~BackendActivityStore();

  /// Hands over what is known of the last 48 hours, then what happens. Nothing while it runs.
  void start(BatchHandler onBatch);

  /// Ends a pass under way at its next good place and follows nothing any more. What is stored and
  /// how far files are read stays, so that a later start goes on from there.
  void stop();

  /// The same, and waits until it has happened. False when it takes longer than that. Not for the
  /// activity queue.
  bool stopAndWait(Seconds limit);

  /// Takes over the sessions of a refresh. Lists must come in their order.
  void sessionsDidRefresh(const std::vector<AgentSession>& sessions);

  /// Stores events that were found elsewhere.
  void record(std::vector<ActivityEvent> events);

  /// Settings have changed: GitHub may have to be asked, or not any more.
  void settingsDidChange();

 private:
  void post(std::function<void(class BackendActivityCore&)> task);

  const Clock clock_;
  TaskQueue& queue_;
  Mutex detectorLock_;
  BackendTransitionDetector detector_ GUARDED_BY(detectorLock_);
  std::shared_ptr<class BackendActivityCore> core_;
};

}  // namespace tessivane
