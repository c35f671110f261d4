#pragma once

// A feed with a clock, queue and settings that a test moves by hand, and short words for what
// happens to it.

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "SampleEvents.h"
#include "activity/ActivityFeed.h"
#include "helpers/ManualClock.h"
#include "helpers/ManualQueue.h"
#include "platform/MemoryUserDefaults.h"

namespace tessivane {

/// Delivers what the test says.
class ScriptedSource final : public ActivitySource {
 public:
  struct Log {
    int starts = 0;
    int stops = 0;
    BatchHandler deliver = {};
  };
  explicit ScriptedSource(Log& log) : log_(log) {}
  void start(BatchHandler onBatch) override {
    ++log_.starts;
    log_.deliver = std::move(onBatch);
  }
  void stop() override { ++log_.stops; }

 private:
  Log& log_;
};

struct FeedRun {
  ManualClock clock;
  ManualQueue queue{clock};
  MemoryUserDefaults defaults{queue};
  ScriptedSource::Log source;
  std::unique_ptr<ActivityFeed> feed = makeFeed();
  int announcements = 0;
  Subscription subscription = feed->subscribe([this] { ++announcements; });

  std::unique_ptr<ActivityFeed> makeFeed() {
    return std::make_unique<ActivityFeed>(
        ActivityFeed::Environment{.mainQueue = &queue, .defaults = &defaults, .now = clock.clock()},
        std::make_unique<ScriptedSource>(source));
  }

  Date now() const { return clock.now(); }
  Date ago(Seconds seconds) const { return shifted(now(), -seconds); }

  void append(std::vector<ActivityEvent> events, std::vector<EditBucket> edits = {}) const {
    feed->append(std::move(events), std::move(edits), now());
  }
  /// What a call of `operation` announced.
  template <typename Operation>
  int announced(Operation operation) {
    const int before = announcements;
    operation();
    return announcements - before;
  }
};

inline ActivityEvent commitOf(std::string id, Date date, std::string root = "/p") {
  return with(sampleEvent(std::move(id), date, ActivityKind::commit, std::move(root)),
              &ActivityEvent::firstSeen,
              shifted(date, Seconds(1)));
}

inline ActivityEvent pullRequestOf(std::string id, Date date, std::string root) {
  ActivityEvent event = commitOf(std::move(id), date, std::move(root));
  event.kind = ActivityKind::prOpened;
  event.ref = "7";
  event.detail = "o/r";
  return event;
}

inline EditBucket editsOf(Date start,
                          const std::vector<std::string>& paths,
                          std::string root = "/p") {
  return {.projectRoot = std::move(root),
          .start = start,
          .files = static_cast<std::int64_t>(paths.size()),
          .paths = paths};
}

template <typename Events>
std::string ids(const Events& events) {
  std::string text;
  for (const ActivityEvent& event : events)
    text += (text.empty() ? "" : " ") + event.id;
  return text;
}

}  // namespace tessivane
