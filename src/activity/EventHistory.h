#pragma once

// What happened lately, in order and without repetition: batches of events go in, each event comes
// out once. A value for one thread, the feed's.

#include <functional>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <tuple>
#include <vector>

#include "activity/ActivityEvent.h"
#include "activity/DatedList.h"
#include "support/FunctionRef.h"

namespace tessivane {

class EventHistory final {
 public:
  /// By date; events of one date in the order in which they were first heard of. Valid until the
  /// next `merge`.
  std::span<const ActivityEvent> events() const { return events_.items(); }

  /// Whether `merge` would change anything. Stops at the first thing that would.
  bool wouldChange(std::span<const ActivityEvent> batch, Date cutoff) const;

  /// Takes the events of a batch one by one, then forgets what is older than `cutoff`. Returns
  /// whether that changed anything.
  ///
  /// An event that is older still is not looked at. A known one replaces what was stored and keeps
  /// the time at which it was first seen. A pull request of a local project takes the place of its
  /// sightings on GitHub, told by kind, ref and detail, and keeps the time of the earliest dated.
  /// An event that is neither is new, and `onNew` is called with it.
  bool merge(std::vector<ActivityEvent> batch,
             Date cutoff,
             FunctionRef<void(const ActivityEvent&)> onNew);

 private:
  /// What the sightings of one pull request have in common: kind, ref, detail.
  using PullRequest = std::tuple<ActivityKind, std::optional<std::string>, std::string>;
  using Sightings = std::map<PullRequest, std::set<std::string>, std::less<>>;

  Sightings::const_iterator sightingsOf(const ActivityEvent& event) const;
  std::optional<Date> takeSightings(const ActivityEvent& event);
  void remember(const ActivityEvent& event);
  void forget(const ActivityEvent& event);

  DatedList<ActivityEvent, &ActivityEvent::id, &ActivityEvent::date> events_;
  // The ids of the stored pull requests that no local project has claimed.
  Sightings sightings_;
};

}  // namespace tessivane
