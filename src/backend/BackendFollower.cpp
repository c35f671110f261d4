#include "backend/BackendFollower.h"

#include <utility>
#include <vector>

#include "support/Paths.h"

namespace tessivane {

namespace {

// The part of an interval by which a timer may come late, so that wake-ups fall together.
constexpr double timerTolerance = 0.1;

std::string parent(const std::string& path) {
  return path.substr(0, path.rfind('/'));
}

}  // namespace

BackendFollower::BackendFollower(BackendActivityConfig config,
                                 TaskQueue& queue,
                                 FileEvents::Handler handler)
    : config_(std::move(config)), queue_(queue), handler_(std::move(handler)) {}

void BackendFollower::follow(const Paths& transcripts, const Paths& gitDirs) {
  Paths polled = transcripts;
  if (config_.t3DBPath) {
    polled.insert(*config_.t3DBPath);
    polled.insert(*config_.t3DBPath + "-wal");
  }
  poll_.follow(polled);
  if (!std::exchange(following_, true)) {
    startPoll();
    watchSources();
  }
  watchRepositories(gitDirs);
}

void BackendFollower::startPoll() {
  const auto poll = [weak = weak_from_this()] {
    const auto self = weak.lock();
    const auto changed = self ? self->poll_.changed() : std::vector<std::string>();
    if (!changed.empty())
      self->handler_(changed, false);
  };
  statTimer_ = queue_.every(config_.pollInterval, config_.pollInterval * timerTolerance, poll);
}

void BackendFollower::watchSources() {
  if (config_.watch) {
    const auto problem = [weak = weak_from_this(), &queue = queue_, report = config_.report](
                             const std::string& sentence) {
      report(sentence);
      queue.async([weak] {
        if (const auto self = weak.lock())
          self->startSweep();
      });
    };
    events_ = config_.fileEvents(problem);
    std::vector<std::string> paths = {config_.claudeDir, config_.codexDir};
    if (config_.t3DBPath)
      paths.push_back(parent(*config_.t3DBPath));
    sources_ = BackendFSWatcher(events_, paths, queue_, handler_);
  }
  if (!sources_.isWatching())
    startSweep();
}

void BackendFollower::watchRepositories(const Paths& gitDirs) {
  if (!config_.watch || gitDirs == watchedDirs_)
    return;
  std::vector<std::string> paths;
  for (const std::string& dir : gitDirs) {
    paths.push_back(joinedPath(dir, "logs"));
    paths.push_back(joinedPath(dir, "worktrees"));
  }
  // First the old one goes: both at once may be more than the system lets this user watch.
  repositories_ = {};
  repositories_ = BackendFSWatcher(events_, paths, queue_, handler_);
  watchedDirs_ = gitDirs;
  if (!repositories_.isWatching())
    startSweep();
}

void BackendFollower::startSweep() {
  if (sweepTimer_)
    return;
  sweepTimer_ = queue_.every(config_.sweepInterval,
                             config_.sweepInterval * timerTolerance,
                             [handler = handler_] { handler({}, true); });
}

}  // namespace tessivane
