// The replay of the feed: starting and steering it, and the loop that moves the window on.

#include <algorithm>
#include <utility>

#include "activity/ActivityFeed.h"

namespace tessivane {

namespace {

constexpr Seconds shortestStep{0.1};
// The last step comes this much after the replay has caught up with the present.
constexpr Seconds catchUpDelay{0.02};

// How long to wait for the next step: the interval, or until the replay catches up with the present
// if that is sooner.
Seconds stepWait(const ReplayClock& clock, Seconds interval, Date now) {
  // In this order an interval that is not a number counts as the shortest.
  const Seconds wait = std::max(shortestStep, interval);
  const double gain = rate(clock.speed) - 1;
  if (gain <= 0)
    return wait;
  const Seconds behind = std::max(elapsed(clock.position(now), now), Seconds(0));
  return std::min(behind / gain + catchUpDelay, wait);
}

}  // namespace

// In a replay an event is seen for the first time when the replay passes it.
void ActivityFeed::publishEvents(Date now) {
  replayedEvents_.clear();
  if (!replay_)
    return;
  replayedEvents_.assign(storedEvents().begin(), storedEvents().end());
  for (ActivityEvent& event : replayedEvents_)
    event.firstSeen = replay_->popInTime(event.date, now).value_or(event.firstSeen);
}

void ActivityFeed::startReplay(Date from, ReplaySpeed speed, Date now) {
  announce();
  const Date position = std::max(from, shifted(now, -historySpan));
  replay_ = ReplayClock::playing(position, speed, now);
  pausedEnd_.reset();
  pendingCount_ = 0;
  publishEvents(now);
  updateStepLoop();
}

void ActivityFeed::pauseReplay(Date now) {
  if (!replay_ || !replay_->isPlaying)
    return;
  announce();
  replay_->isPlaying = false;
  replay_->anchor(now);
  publishEvents(now);
  updateStepLoop();
}

void ActivityFeed::resumeReplay(Date now) {
  if (!replay_ || replay_->isPlaying)
    return;
  announce();
  replay_->isPlaying = true;
  replay_->anchor(now);
  publishEvents(now);
  updateStepLoop();
}

void ActivityFeed::toggleReplay(Date now) {
  if (replay_ && replay_->isPlaying) {
    pauseReplay(now);
  } else {
    resumeReplay(now);
  }
}

// Publishes too: the events still to come appear sooner or later than was expected.
void ActivityFeed::setReplaySpeed(ReplaySpeed speed, Date now) {
  if (!replay_ || replay_->speed == speed)
    return;
  announce();
  replay_->speed = speed;
  replay_->anchor(now);
  publishEvents(now);
}

bool ActivityFeed::updateReplay(Date now) {
  if (!replay_)
    return false;
  if (replay_->position(now) >= now) {
    endReplay();
    return true;
  }
  change(replayStep_, replayStep_ + 1);
  return false;
}

void ActivityFeed::endReplay() {
  if (!replay_)
    return;
  announce();
  replay_.reset();
  publishEvents(environment_.now());
  updateStepLoop();
}

void ActivityFeed::updateStepLoop() {
  if (!isRunning_ || !replay_ || !replay_->isPlaying) {
    stepTask_.cancel();
  } else if (!stepTask_) {
    scheduleStep();
  }
}

void ActivityFeed::scheduleStep() {
  const Seconds wait = stepWait(*replay_, replayStepInterval_, environment_.now());
  stepTask_ = environment_.mainQueue->after(wait, ifAlive([](ActivityFeed& feed) { feed.step(); }));
}

void ActivityFeed::step() {
  updateReplay(environment_.now());
  // The step may have ended the replay, and whoever it woke may have paused it.
  if (stepTask_)
    scheduleStep();
}

}  // namespace tessivane
