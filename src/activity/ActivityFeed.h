#pragma once

// The one model of recent happenings behind the Activity window. It takes over what a source
// delivers, keeps the last 48 hours of it, holds what the person chose to see, and answers what is
// in view: live, behind a pause, or in a replay.
//
// Lives on the main thread, as all its operations do. Creating it starts nothing. A change of
// anything that it shows is announced before it happens, one announcement for all that an operation
// changes; whoever is told reads the feed later, in a task of its own. An observer may call any
// operation, but must not destroy the feed.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "activity/ActivityEvent.h"
#include "activity/ActivitySource.h"
#include "activity/DatedList.h"
#include "activity/EventHistory.h"
#include "activity/ReplayClock.h"
#include "platform/TaskQueue.h"
#include "platform/UserDefaults.h"
#include "support/Date.h"
#include "support/Observers.h"

namespace tessivane {

class ActivityFeed final {
 public:
  /// What the feed needs of the platform; all of it outlives the feed, the queue the source's last
  /// delivery too.
  struct Environment {
    TaskQueue* mainQueue = nullptr;
    UserDefaults* defaults = nullptr;
    Clock now = {};
  };

  /// What lies after `start`, up to and including `end`.
  struct Window {
    Date start = distantPast;
    Date end = distantPast;

    friend bool operator==(const Window&, const Window&) = default;
  };

  using Kinds = std::set<ActivityKind>;
  using Projects = std::set<std::string>;
  using TagSizes = std::map<ActivityKind, TimelineSizeClass>;

  static constexpr Seconds historySpan = std::chrono::hours(48);
  /// How long after its start a bucket of edits goes on.
  static constexpr Seconds bucketSpan = std::chrono::minutes(1);

  explicit ActivityFeed(Environment environment, std::unique_ptr<ActivitySource> source = nullptr);
  ActivityFeed(const ActivityFeed&) = delete;
  ActivityFeed& operator=(const ActivityFeed&) = delete;
  /// Stops a source that was started.
  ~ActivityFeed();

  /// Calls `willChange` before each change of the state below, and on each step of a replay.
  Subscription subscribe(std::function<void()> willChange) const;

  /// Starts the source, once. Nothing without one.
  void start();
  bool isRunning() const { return isRunning_; }

  /// Takes over a batch: what it says again or better about known events and buckets, and what is
  /// new. Then forgets what is older than 48 hours.
  void append(std::vector<ActivityEvent> events, std::vector<EditBucket> edits, Date now);

  /// By date, those of one date in the order of arrival. Valid until the feed changes. In a replay
  /// `firstSeen` is the time at which the replay passes the event.
  std::span<const ActivityEvent> events() const;
  /// The same with `firstSeen` as it was.
  std::span<const ActivityEvent> storedEvents() const { return history_.events(); }
  /// By start, those of one start in the order of arrival. Valid until the feed changes.
  std::span<const EditBucket> edits() const { return edits_.items(); }
  /// Counts up when the stored events change.
  std::int64_t eventsRevision() const { return eventsRevision_; }

  // Whose window is shown.
  bool isLive() const { return !pausedEnd_ && !replay_; }
  bool isReplaying() const { return replay_.has_value(); }
  std::optional<Date> pausedEnd() const { return pausedEnd_; }
  /// Lets the window stand still with this end, or follow the time again. Then nothing waits behind
  /// the pause any more, so the pending count starts anew.
  void setPausedEnd(std::optional<Date> end);
  /// How many events have arrived behind a pause that would show.
  std::int64_t pendingCount() const { return pendingCount_; }
  Window window(Date now) const;
  /// The end of the window where that is not the present; nothing when live.
  std::optional<Date> viewEnd() const;
  /// Where the replay stands.
  std::optional<Date> replayEnd(Date now) const;

  // What the person chose to see.
  ActivityRange range() const { return range_; }
  void setRange(ActivityRange range);
  const Kinds& enabledKinds() const { return enabledKinds_; }
  void setEnabledKinds(Kinds kinds);
  /// Shows this kind alone or, where it is alone already, all of them.
  void solo(ActivityKind kind);
  /// Roots of projects; empty for all.
  const Projects& projectFilter() const { return projectFilter_; }
  void setProjectFilter(Projects roots);
  bool showEdits() const { return showEdits_; }
  void setShowEdits(bool shows);
  /// Those that differ from the default.
  const TagSizes& tagSizes() const { return tagSizes_; }
  TimelineSizeClass tagSize(ActivityKind kind) const;
  void setTagSize(TimelineSizeClass size, ActivityKind kind);

  // What is in view. The counts answer what the filters next to them would bring, so they look at
  // window and projects only, not at the kinds or at whether edits are shown.
  std::vector<ActivityEvent> visibleEvents(Date now) const;
  /// A bucket stands for the minute after its start: it leaves the window with the end of that.
  std::vector<EditBucket> visibleEdits(Date now) const;
  /// Has every kind, with zero too.
  std::map<ActivityKind, std::size_t> counts(Date now) const;
  std::map<std::string, std::size_t> projectCounts(Date now) const;
  /// How many files were edited. A file counts once for each project that it was edited in, however
  /// often that happened.
  std::size_t editedFileCount(Date now) const;
  /// The roots of all that happened after `start`, up to and including `end`, by the names of their
  /// last components; one without a name comes last.
  std::vector<std::string> projects(Date start, Date end) const;

  /// When the next event or bucket leaves a live window.
  std::optional<Date> nextAgeOut(Date now) const;
  /// Counts up when something has left the live window.
  std::int64_t ageOutTick() const { return ageOutTick_; }

  // The replay.
  const std::optional<ReplayClock>& replay() const { return replay_; }
  /// Counts up while a replay moves the window.
  std::int64_t replayStep() const { return replayStep_; }
  Seconds replayStepInterval() const { return replayStepInterval_; }
  /// How long a step may take, 0.1 s or more; from the next step on.
  void setReplayStepInterval(Seconds interval) { replayStepInterval_ = interval; }
  /// Plays what happened since `from`, or in the last 48 hours if that is later. Ends a pause.
  void startReplay(Date from, ReplaySpeed speed, Date now);
  void pauseReplay(Date now);
  void resumeReplay(Date now);
  void toggleReplay(Date now);
  void setReplaySpeed(ReplaySpeed speed, Date now);
  /// Moves the window on. Returns true when the replay had reached the present, and has ended.
  bool updateReplay(Date now);
  /// Goes live. Nothing without a replay.
  void endReplay();

 private:
  using Edits = DatedList<EditBucket, &EditBucket::id, &EditBucket::start>;

  void announce() const { willChange_.notify(); }
  template <typename Value>
  void change(Value& property, Value value) {
    if (value == property)
      return;
    announce();
    property = std::move(value);
  }
  /// Wraps a task for the main queue that may come to run after the feed has gone.
  template <typename Task>
  TaskQueue::Task ifAlive(Task task) const {
    return [weak = std::weak_ptr<ActivityFeed*>(self_), task = std::move(task)] {
      if (const auto self = weak.lock())
        task(**self);
    };
  }

  bool isShown(const std::string& projectRoot) const;
  std::span<const ActivityEvent> eventsInWindow(Date now) const;
  std::span<const EditBucket> editsInWindow(Date now) const;
  bool editsWouldChange(std::span<const EditBucket> batch, Date cutoff) const;

  bool storedShowEdits() const;
  TagSizes storedTagSizes() const;
  void readSettings();

  void scheduleAgeOut(Date now);
  void rescheduleAgeOutSoon();

  void publishEvents(Date now);
  void updateStepLoop();
  void scheduleStep();
  void step();

  const Environment environment_;
  const std::unique_ptr<ActivitySource> source_;
  Observers<> willChange_;

  EventHistory history_;
  Edits edits_;
  std::vector<ActivityEvent> replayedEvents_;  // empty without a replay
  std::int64_t eventsRevision_ = 0;
  bool isRunning_ = false;

  std::optional<Date> pausedEnd_;
  std::int64_t pendingCount_ = 0;
  std::optional<ReplayClock> replay_;
  std::int64_t replayStep_ = 0;
  Seconds replayStepInterval_{1};

  ActivityRange range_ = ActivityRange::h1;
  Kinds enabledKinds_{allActivityKinds.begin(), allActivityKinds.end()};
  Projects projectFilter_;
  bool showEdits_ = true;
  TagSizes tagSizes_;

  std::int64_t ageOutTick_ = 0;
  bool ageOutPending_ = false;  // a task to reschedule is queued

  // Before the subscriptions and handles, so that no task of theirs outlives it.
  std::shared_ptr<ActivityFeed*> self_ = std::make_shared<ActivityFeed*>(this);
  Subscription ageOutObserver_;
  Subscription defaultsObserver_;
  TaskHandle ageOutTimer_;
  TaskHandle stepTask_;  // filled while the step loop runs
};

}  // namespace tessivane
