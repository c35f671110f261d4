#pragma once

// The live program without its surfaces: discovery, store, Rush, the activity backend and its feed,
// wired to each other. Made on the main thread by the main line, for the length of the process; the
// same with a desktop and without.

#include <functional>
#include <memory>

#include "activity/ActivityFeed.h"
#include "backend/BackendActivityStore.h"
#include "platform/Pasteboard.h"
#include "platform/TaskQueue.h"
#include "platform/UserDefaults.h"
#include "platform/Workspace.h"
#include "platform/linux/SerialQueue.h"
#include "rush/RushController.h"
#include "sessions/SessionDiscovery.h"
#include "sessions/SessionStore.h"

namespace tessivane {

class Program final {
 public:
  /// What differs between a desktop and none.
  struct Shell {
    Workspace workspace = {};
    Pasteboard pasteboard = {};
    /// Whether an automatic deal of Rush may bring a window forward.
    std::function<bool()> frontmostIsInFlow = [] { return false; };
  };

  /// `mainQueue` and `defaults` outlive it.
  Program(TaskQueue& mainQueue, UserDefaults& defaults, const Shell& shell);
  Program(const Program&) = delete;
  Program& operator=(const Program&) = delete;
  ~Program();

  SessionStore& store() { return store_; }
  RushController& rush() { return rush_; }
  ActivityFeed& activity() { return activity_; }

  /// Ends the activity backend and waits until neither it nor the refresh queue has anything to
  /// do, so that destroying the program is quick. False when a pass takes longer than that: it may
  /// be waiting for a writer's lock.
  bool comesToRest(Seconds limit);

 private:
  std::unique_ptr<BackendActivityStore> makeBackend(TaskQueue& mainQueue, UserDefaults& defaults);

  // Known weakly by tasks of the main queue.
  std::shared_ptr<Program*> self_ = std::make_shared<Program*>(this);
  // In this order, as refreshes tell the backend, both work on their queues to the end, and both
  // ask for project roots. A poll of GitHub ends on the activity queue.
  SessionDiscovery discovery_;
  SerialQueue activityQueue_;
  SerialQueue gitHubQueue_;
  std::unique_ptr<BackendActivityStore> backend_;  // null where invented work takes its place
  SerialQueue refreshQueue_;
  SessionStore store_;
  RushController rush_;
  ActivityFeed activity_;
  Subscription settings_;
};

/// The sessions that `store` publishes once it has loaded, at once and at every change, as a stream
/// of Rush.
RushController::Stream loadedSessions(SessionStore& store,
                                      std::function<void(const RushController::Sessions&)> call);

}  // namespace tessivane
