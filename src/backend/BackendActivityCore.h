#pragma once

// The part of the activity store that lives on the activity queue: what is followed, what is to be
// scanned, and the passes that scan it. Only `requestStop` may be called on another thread.
//
// What is due is gathered and scanned in passes, each one transaction. A pass that could not be
// stored is repeated later with all that was due in it, at growing distances. Events that no file
// tells again wait in memory until they are stored.

#include <atomic>
#include <cstddef>
#include <memory>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "activity/ActivitySource.h"
#include "backend/BackendActivityConfig.h"
#include "backend/BackendClaudeSubagents.h"
#include "backend/BackendEventStore.h"
#include "backend/BackendFollower.h"
#include "backend/BackendGitHubIngest.h"
#include "backend/BackendGitHubPolls.h"
#include "backend/BackendGitScan.h"
#include "backend/BackendOutbox.h"
#include "backend/BackendPass.h"
#include "backend/BackendPublishThrottle.h"
#include "backend/BackendRepositories.h"
#include "backend/BackendStartDetector.h"
#include "backend/BackendT3Scan.h"
#include "backend/BackendTranscripts.h"
#include "platform/TaskQueue.h"
#include "sessions/AgentSession.h"
#include "sessions/ProjectRootResolver.h"
#include "support/Date.h"

namespace tessivane {

class BackendActivityCore final : public std::enable_shared_from_this<BackendActivityCore> {
 public:
  using BatchHandler = ActivitySource::BatchHandler;
  using Sessions = std::vector<AgentSession>;
  using Events = std::vector<ActivityEvent>;

  BackendActivityCore(BackendActivityConfig config, TaskQueue& queue, ProjectRootResolver& roots);
  BackendActivityCore(const BackendActivityCore&) = delete;
  BackendActivityCore& operator=(const BackendActivityCore&) = delete;
  ~BackendActivityCore();

  /// Any thread: lets a pass end early until `stop` has run as often as this was called.
  void requestStop() { ++stops_; }

  void start(BatchHandler onBatch);
  void stop();
  void sessionsDidRefresh(const Sessions& sessions, const Events& transitions);
  void record(const Events& events);
  void updateGitHub();

 private:
  /// What the next pass scans and stores.
  struct Due {
    std::set<std::string> transcripts = {};
    std::set<std::string> gitDirs = {};
    bool t3 = false;
    std::optional<BackendPolled> polled = {};

    bool isEmpty() const { return transcripts.empty() && gitDirs.empty() && !t3 && !polled; }
  };
  enum class Extent { changes, everything };

  bool openStore();
  void giveUpStore();
  void begin();
  void deliverHistory(Date now);
  void makeFollower();
  void makeGitHub();

  void reconcile(Extent extent);
  void addAllDue();
  std::set<std::string> knownGitDirs();
  void handle(const std::vector<std::string>& changed, bool rescan);
  bool isT3(const std::string& path) const;
  bool isSource(const std::string& path) const;

  void keep(const Events& events);
  void runPass();
  void scanDue(const Due& due, const BackendPass& pass);
  void scanT3(const BackendPass& pass);
  void storeRecorded(const BackendPass& pass);
  void passEnded(Due due, std::size_t recorded, bool stored);
  void retryLater();

  void scheduleFlush();
  void flush();

  template <typename Task>
  TaskQueue::Task ifAlive(Task task) {
    return [weak = weak_from_this(), task = std::move(task)] {
      if (const auto self = weak.lock())
        task(*self);
    };
  }

  const BackendActivityConfig config_;
  TaskQueue& queue_;
  ProjectRootResolver& roots_;
  std::atomic<int> stops_ = 0;
  bool running_ = false;
  BatchHandler onBatch_;  // set from start to stop, also while the store cannot be opened
  bool historyIsWhole_ = false;
  bool hasSessions_ = false;   // a first list has come
  bool isBackfilled_ = false;  // a pass was stored since the start

  // What is found.
  std::unique_ptr<BackendEventStore> store_;
  BackendStartDetector starts_;
  std::optional<BackendClaudeSubagents> subagents_;
  Events recorded_;  // until they are stored
  BackendOutbox outbox_;
  BackendPublishThrottle throttle_;
  TaskHandle flush_;  // filled while one is scheduled
  Date lastPrune_ = distantPast;

  // What is followed.
  BackendGitScan::Sessions sessions_;
  BackendT3Scan::SessionsByID sessionsByID_;  // point into `sessions_`
  std::vector<std::string> sessionSignature_;
  BackendRepositories repositories_;
  BackendTranscripts transcripts_;
  std::optional<BackendGitScan> gitScan_;
  std::optional<BackendT3Scan> t3Scan_;
  std::shared_ptr<BackendFollower> follower_;   // from start to stop
  std::shared_ptr<BackendGitHubPolls> gitHub_;  // likewise
  BackendGitHubIngest gitHubIngest_;

  Due due_;
  Seconds retryDelay_{0};
  TaskHandle retry_;    // filled while a pass that failed waits to be repeated
  TaskHandle t3Timer_;  // filled while a scan of T3 waits for its time
};

}  // namespace tessivane
