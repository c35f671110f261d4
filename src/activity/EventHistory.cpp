#include "activity/EventHistory.h"

#include <algorithm>
#include <utility>

namespace tessivane {

namespace {

// All that an event says; when it was first seen is no part of that.
auto contents(const ActivityEvent& event) {
  const auto& [id,
               kind,
               date,
               projectRoot,
               projectName,
               sessionID,
               sessionTitle,
               owner,
               engine,
               ref,
               title,
               detail,
               branch,
               firstSeen] = event;
  return std::tie(id,
                  kind,
                  date,
                  projectRoot,
                  projectName,
                  sessionID,
                  sessionTitle,
                  owner,
                  engine,
                  ref,
                  title,
                  detail,
                  branch);
}

bool isPullRequest(const ActivityEvent& event) {
  return (event.kind == ActivityKind::prOpened || event.kind == ActivityKind::prMerged) &&
         event.detail.has_value();
}

bool isSighting(const ActivityEvent& event) {
  return isPullRequest(event) && isGitHubRoot(event.projectRoot);
}

auto pullRequest(const ActivityEvent& event) {
  return std::tie(event.kind, event.ref, *event.detail);
}

}  // namespace

EventHistory::Sightings::const_iterator EventHistory::sightingsOf(
    const ActivityEvent& event) const {
  if (sightings_.empty() || !isPullRequest(event) || isGitHubRoot(event.projectRoot))
    return sightings_.end();
  return sightings_.find(pullRequest(event));
}

bool EventHistory::wouldChange(std::span<const ActivityEvent> batch, Date cutoff) const {
  if (!events().empty() && events().front().date < cutoff)
    return true;
  // A source that delivers everything again does so in order.
  const ActivityEvent* known = nullptr;
  return std::ranges::any_of(batch, [&](const ActivityEvent& event) {
    if (event.date < cutoff)
      return false;
    known = events_.find(event.id, known);
    return known == nullptr || contents(*known) != contents(event) ||
           sightingsOf(event) != sightings_.end();
  });
}

bool EventHistory::merge(std::vector<ActivityEvent> batch,
                         Date cutoff,
                         FunctionRef<void(const ActivityEvent&)> onNew) {
  bool changed = !events().empty() && events().front().date < cutoff;
  for (ActivityEvent& event : batch) {
    if (event.date < cutoff)
      continue;
    const std::optional<Date> sighted = takeSightings(event);
    changed = changed || sighted;
    if (const ActivityEvent* known = events_.find(event.id)) {
      event.firstSeen = sighted.value_or(known->firstSeen);
      if (event == *known)
        continue;
      forget(*known);
    } else if (sighted) {
      event.firstSeen = *sighted;
    } else {
      onNew(event);
    }
    changed = true;
    remember(event);
    events_.put(std::move(event));
  }
  events_.settle();
  for (const ActivityEvent& event : events()) {
    if (event.date >= cutoff)
      break;
    forget(event);
  }
  events_.dropBefore(cutoff);
  return changed;
}

// Removes the sightings of the pull request that a local project now claims, and tells when the
// earliest dated of them was first seen.
std::optional<Date> EventHistory::takeSightings(const ActivityEvent& event) {
  const auto found = sightingsOf(event);
  if (found == sightings_.end())
    return std::nullopt;
  std::pair<Date, Date> earliest = {Date::max(), Date::max()};
  for (const std::string& id : found->second) {
    if (const ActivityEvent* sighting = events_.find(id))
      earliest = std::min(earliest, {sighting->date, sighting->firstSeen});
    events_.remove(id);
  }
  sightings_.erase(found);
  return earliest.second;
}

void EventHistory::remember(const ActivityEvent& event) {
  if (isSighting(event))
    sightings_[pullRequest(event)].insert(event.id);
}

void EventHistory::forget(const ActivityEvent& event) {
  if (!isSighting(event))
    return;
  const auto found = sightings_.find(pullRequest(event));
  found->second.erase(event.id);
  if (found->second.empty())
    sightings_.erase(found);
}

}  // namespace tessivane
