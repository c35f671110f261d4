#include "activity/LanesStreamCache.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <utility>

namespace tessivane {

namespace {

std::vector<const ActivityEvent*> matching(const LanesStreamInput& input) {
  std::array<bool, allActivityKinds.size()> wanted = {};
  for (const ActivityKind kind : input.kinds)
    wanted.at(static_cast<std::size_t>(kind)) = true;
  std::vector<const ActivityEvent*> result;
  for (const ActivityEvent& event : input.events) {
    if (wanted.at(static_cast<std::size_t>(event.kind)) &&
        (input.projects.empty() || input.projects.contains(event.projectRoot)))
      result.push_back(&event);
  }
  const auto date = [](const ActivityEvent* event) { return event->date; };
  if (!std::ranges::is_sorted(result, {}, date))
    std::ranges::stable_sort(result, {}, date);
  return result;
}

}  // namespace

std::size_t LanesStreamCache::firstIndex(std::span<const ActivityEvent* const> events, Date after) {
  const auto date = [](const ActivityEvent* event) { return event->date; };
  return static_cast<std::size_t>(std::ranges::upper_bound(events, after, {}, date) -
                                  events.begin());
}

void LanesStreamCache::update(const LanesStreamInput& input) {
  updateFilter(input);
  const std::size_t lo = firstIndex(filtered_, input.start);
  // A span that ends before it starts holds nothing.
  const std::size_t hi = std::max(lo, firstIndex(filtered_, input.end));
  const GroupKey key{.version = filterVersion_,
                     .lo = lo,
                     .hi = hi,
                     .bucket = std::isnan(input.bucket.count()) ? 0 : input.bucket.count()};
  // The first filtering has raised the version.
  if (key == groupKey_)
    return;
  groupKey_ = key;
  group(input.bucket);
}

void LanesStreamCache::updateFilter(const LanesStreamInput& input) {
  const Source source{
      .events = input.events.data(), .count = input.events.size(), .revision = input.revision};
  const bool sameSource = hasFiltered_ && source == source_;
  if (sameSource && input.kinds == kinds_ && input.projects == projectFilter_)
    return;
  auto events = matching(input);
  if (!sameSource || events != filtered_)
    ++filterVersion_;
  filtered_ = std::move(events);
  source_ = source;
  kinds_ = input.kinds;
  projectFilter_ = input.projects;
  hasFiltered_ = true;
}

void LanesStreamCache::group(Seconds bucket) {
  const auto visible = std::span(filtered_).subspan(groupKey_.lo, groupKey_.hi - groupKey_.lo);
  sections_ = LanesGrouping::sections(visible, bucket);
  rows_.clear();
  for (const LanesSection& section : sections_) {
    for (const LanesRow& row : section.rows)
      rows_.push_back(&row);
  }
  ++groupings_;
}

}  // namespace tessivane
