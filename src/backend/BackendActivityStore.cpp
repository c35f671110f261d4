#include "backend/BackendActivityStore.h"

#include <future>
#include <utility>

#include "backend/BackendActivityCore.h"

namespace tessivane {

BackendActivityStore::BackendActivityStore(BackendActivityConfig config,
                                           TaskQueue& queue,
                                           ProjectRootResolver& roots)
    : clock_(config.clock),
      queue_(queue),
      core_(std::make_shared<BackendActivityCore>(std::move(config), queue, roots)) {}

BackendActivityStore::~BackendActivityStore() {
  core_->requestStop();
}

void BackendActivityStore::post(std::function<void(BackendActivityCore&)> task) {
  queue_.async([weak = std::weak_ptr(core_), task = std::move(task)] {
    if (const auto core = weak.lock())
      task(*core);
  });
}

void BackendActivityStore::start(BatchHandler onBatch) {
  post([onBatch = std::move(onBatch)](BackendActivityCore& core) { core.start(onBatch); });
}

void BackendActivityStore::stop() {
  core_->requestStop();
  post([](BackendActivityCore& core) { core.stop(); });
}

bool BackendActivityStore::stopAndWait(Seconds limit) {
  auto done = std::make_shared<std::promise<void>>();
  auto future = done->get_future();
  core_->requestStop();
  post([done](BackendActivityCore& core) {
    core.stop();
    done->set_value();
  });
  return future.wait_for(limit) == std::future_status::ready;
}

// Transitions are found here, so that two lists cannot be compared out of turn, and posted under
// the same lock, so that they are stored in their order too.
void BackendActivityStore::sessionsDidRefresh(const std::vector<AgentSession>& sessions) {
  auto list = std::make_shared<const std::vector<AgentSession>>(sessions);
  const MutexLock guard(detectorLock_);
  auto transitions = detector_.diff(sessions, clock_());
  post([list, transitions = std::move(transitions)](BackendActivityCore& core) {
    core.sessionsDidRefresh(*list, transitions);
  });
}

void BackendActivityStore::record(std::vector<ActivityEvent> events) {
  post([events = std::move(events)](BackendActivityCore& core) { core.record(events); });
}

void BackendActivityStore::settingsDidChange() {
  post([](BackendActivityCore& core) { core.updateGitHub(); });
}

}  // namespace tessivane
