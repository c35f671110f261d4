#include "backend/BackendGitHubPolls.h"

#include <utility>

#include "github/GitHubSettings.h"

namespace tessivane {

BackendGitHubPolls::BackendGitHubPolls(BackendActivityConfig config, TaskQueue& queue, Owner owner)
    : config_(std::move(config)), queue_(queue), owner_(std::move(owner)) {}

void BackendGitHubPolls::update() {
  const bool isWanted =
      config_.github && config_.defaults != nullptr && GitHubSettings::isEnabled(*config_.defaults);
  if (isWanted && !source_)
    begin();
  else if (!isWanted)
    stop();
}

void BackendGitHubPolls::restart() {
  if (!source_)
    return;
  source_->stop();
  source_->start();
}

// The source may outlive this object for the length of one of its tasks.
void BackendGitHubPolls::begin() {
  const auto deliver = [weak = weak_from_this()](const std::vector<GitHubPR>& prs, bool catchUp) {
    const auto self = weak.lock();
    if (self && !prs.empty()) {
      self->owner_.deliver(
          {.prs = prs, .catchUp = catchUp, .cursor = std::exchange(self->cursor_, std::nullopt)});
    }
  };
  const auto keepCursor = [weak = weak_from_this()](const std::string& cursor) {
    if (const auto self = weak.lock())
      self->cursor_ = cursor;
  };
  source_ = std::make_shared<GitHubPRSource>(*config_.github,
                                             queue_,
                                             GitHubPRSource::Owner{.clock = config_.clock,
                                                                   .loadCursor = owner_.loadCursor,
                                                                   .saveCursor = keepCursor,
                                                                   .deliver = deliver});
  // Told on any thread.
  signIn_ = config_.github->auth->observe([&queue = queue_, weak = weak_from_this()] {
    queue.async([weak] {
      const auto self = weak.lock();
      if (self && self->source_)
        self->source_->schedule(Seconds(0));
    });
  });
  source_->start();
}

void BackendGitHubPolls::stop() {
  signIn_.reset();
  if (source_)
    source_->stop();
  source_.reset();
}

}  // namespace tessivane
