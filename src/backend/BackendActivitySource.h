#pragma once

// What really happens on this computer, as a source of the feed: the activity store.

#include <utility>

#include "activity/ActivitySource.h"
#include "backend/BackendActivityStore.h"

namespace tessivane {

class BackendActivitySource final : public ActivitySource {
 public:
  /// The store outlives the source.
  explicit BackendActivitySource(BackendActivityStore& store) : store_(store) {}

  void start(BatchHandler onBatch) override { store_.start(std::move(onBatch)); }
  void stop() override { store_.stop(); }

 private:
  BackendActivityStore& store_;
};

}  // namespace tessivane
