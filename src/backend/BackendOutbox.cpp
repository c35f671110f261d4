#include "backend/BackendOutbox.h"

#include <algorithm>
#include <utility>

namespace tessivane {

namespace {

bool isPullRequest(const ActivityEvent& event) {
  return event.kind == ActivityKind::prOpened || event.kind == ActivityKind::prMerged;
}

// The same pull request, told before it was known to which project it belongs.
bool isTwin(const ActivityEvent& candidate, const ActivityEvent& event) {
  return isGitHubRoot(candidate.projectRoot) && candidate.kind == event.kind &&
         candidate.ref == event.ref && candidate.detail == event.detail;
}

}  // namespace

void BackendOutbox::add(ActivityEvent event) {
  events_.push_back(std::move(event));
}

void BackendOutbox::add(EditBucket bucket) {
  const auto [place, isNew] = editsByID_.try_emplace(bucket.id(), edits_.size());
  if (isNew)
    edits_.push_back(std::move(bucket));
  else
    edits_[place->second] = std::move(bucket);
}

void BackendOutbox::correct(ActivityEvent event) {
  const bool hasTwins = isPullRequest(event) && event.detail && !isGitHubRoot(event.projectRoot);
  std::erase_if(events_, [&event, hasTwins](const ActivityEvent& candidate) {
    return candidate.id == event.id || (hasTwins && isTwin(candidate, event));
  });
  events_.push_back(std::move(event));
}

BackendOutbox::Batch BackendOutbox::take() {
  Batch batch{.events = std::exchange(events_, {}), .edits = std::exchange(edits_, {})};
  editsByID_.clear();
  std::ranges::stable_sort(batch.events, {}, &ActivityEvent::date);
  std::ranges::stable_sort(batch.edits, {}, &EditBucket::start);
  return batch;
}

void BackendOutbox::clear() {
  take();
}

}  // namespace tessivane
