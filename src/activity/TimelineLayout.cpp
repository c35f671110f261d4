#include "activity/TimelineLayout.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <tuple>
#include <utility>

#include "activity/TimelineCallout.h"
#include "activity/TimelineRollUp.h"

namespace tessivane {

namespace {

using std::chrono::seconds;

constexpr seconds ticksBeforeWindow(240);
constexpr double cardBehindMarker = 12;
constexpr double leaderAboveAxis = 6;
constexpr double leaderBelowAxis = 40;
constexpr Seconds freshAge(1.5);
constexpr double cardMargin = 2;
constexpr double editMiddle = 1.5;
constexpr double editReach = 3.5;
constexpr double editTop = 6;
constexpr double editBottom = 10;

// By size class.
constexpr std::array cardHeights = {46.0, 26.0, 21.0};
constexpr std::array markerRadii = {11.0, 9.0, 7.5};

template <typename Table>
double bySize(const Table& table, TimelineSizeClass size) {
  return table.at(static_cast<std::size_t>(size));
}

seconds tickStep(ActivityRange range) {
  switch (range) {
    case ActivityRange::m15:
      return seconds(300);
    case ActivityRange::h1:
      return seconds(900);
    case ActivityRange::h6:
      return seconds(3600);
  }
  return seconds(900);
}

std::vector<TimelineGridTick> gridTicks(const TimelineGeometry& geometry,
                                        Date end,
                                        ActivityRange range) {
  const seconds step = tickStep(range);
  const seconds before = std::chrono::duration_cast<seconds>(geometry.span) + ticksBeforeWindow;
  const seconds from = std::chrono::ceil<seconds>(end - before).time_since_epoch();
  const seconds past = (from % step + step) % step;
  std::vector<TimelineGridTick> ticks;
  for (Date tick(past.count() == 0 ? from : from - past + step); tick <= end + step; tick += step)
    ticks.push_back({.date = tick, .x = geometry.x(tick, end)});
  return ticks;
}

// A group of events on its way to becoming an item.
struct Group {
  std::vector<ActivityEvent> events = {};
  TimelineSizeClass size = TimelineSizeClass::small;
  Date date = distantPast;
};

// Who comes first chooses a row first: the large ones, and of equals the newest.
std::vector<Group> rankedGroups(std::vector<ActivityEvent> events,
                                double pointsPerSecond,
                                const std::map<ActivityKind, TimelineSizeClass>& sizes) {
  std::vector<Group> groups;
  for (std::vector<ActivityEvent>& members : rollUp(std::move(events), pointsPerSecond)) {
    const ActivityKind kind = members.front().kind;
    const Date date = members.front().date;
    const auto chosen = sizes.find(kind);
    groups.push_back({.events = std::move(members),
                      .size = chosen != sizes.end() ? chosen->second : defaultSize(kind),
                      .date = date});
  }
  std::ranges::stable_sort(groups, [](const Group& a, const Group& b) {
    return std::tie(a.size, b.date) < std::tie(b.size, a.date);
  });
  return groups;
}

std::string itemID(const std::vector<ActivityEvent>& events) {
  if (events.size() == 1)
    return events.front().id;
  const ActivityEvent& lead = events.front();
  return "group:" + lead.sessionID.value_or(lead.projectRoot) + ":" + events.back().id;
}

TimelineSide sideOf(ActivityKind kind) {
  switch (kind) {
    case ActivityKind::needsYou:
    case ActivityKind::finished:
    case ActivityKind::started:
      return TimelineSide::below;
    case ActivityKind::commit:
    case ActivityKind::prOpened:
    case ActivityKind::prMerged:
    case ActivityKind::branched:
      return TimelineSide::above;
  }
  return TimelineSide::above;
}

// What became known later than now, by a clock that was set back, counts as fresh too.
bool isFresh(const std::vector<ActivityEvent>& events, Date now) {
  return std::ranges::any_of(events, [now](const ActivityEvent& event) {
    return elapsed(withinCalendar(event.firstSeen), now) < freshAge;
  });
}

void putCard(
    TimelineItem& item, int row, double left, double width, const TimelineGeometry& geometry) {
  const double height = bySize(cardHeights, item.size);
  const double top = geometry.rows(item.side).at(static_cast<std::size_t>(row)) - height / 2;
  item.row = row;
  item.rect = TimelineRect{.x = left, .y = top, .width = width, .height = height};
  item.leader = item.side == TimelineSide::above
                    ? TimelineLeader{.top = top + height, .bottom = geometry.mid - leaderAboveAxis}
                    : TimelineLeader{.top = geometry.mid + leaderBelowAxis, .bottom = top};
}

// Oldest first, ties by id.
std::vector<TimelineItem> inDrawingOrder(std::vector<TimelineItem> items) {
  std::vector<std::pair<Date, std::size_t>> order;
  order.reserve(items.size());
  for (std::size_t i = 0; i < items.size(); ++i)
    order.emplace_back(items[i].events.front().date, i);
  std::ranges::sort(order, [&](const auto& a, const auto& b) {
    return std::tie(a.first, items[a.second].id, a.second) <
           std::tie(b.first, items[b.second].id, b.second);
  });
  std::vector<TimelineItem> result;
  result.reserve(items.size());
  for (const auto& [date, index] : order)
    result.push_back(std::move(items[index]));
  return result;
}

// All items with their markers and texts in the order of their rank, and beside them their cards.
struct Draft {
  std::vector<TimelineItem> items = {};
  std::vector<TimelineCandidate> cards = {};
};

Draft draftOf(std::vector<Group> groups,
              const TimelineGeometry& geometry,
              const TimelineInput& input) {
  Draft draft;
  draft.items.reserve(groups.size());  // the cards look at the ids
  draft.cards.reserve(groups.size());
  for (Group& group : groups) {
    TimelineCallout callout = timelineCallout(group.events, group.size, input.measure);
    TimelineItem& item = draft.items.emplace_back();
    item.id = itemID(group.events);
    item.size = group.size;
    item.side = sideOf(group.events.front().kind);
    item.markerX = geometry.x(group.date, input.end);
    item.title = std::move(callout.title);
    item.label = std::move(callout.label);
    item.isFresh = isFresh(group.events, input.now);
    item.events = std::move(group.events);
    const double right = item.markerX + cardBehindMarker;
    draft.cards.push_back({.id = item.id,
                           .side = item.side,
                           .size = item.size,
                           .left = right - callout.width,
                           .right = right});
  }
  return draft;
}

double squaredDistance(TimelinePoint a, TimelinePoint b) {
  return (a.x - b.x) * (a.x - b.x) + (a.y - b.y) * (a.y - b.y);
}

// The one on top.
const TimelineItem* cardAt(const std::vector<TimelineItem>& items, TimelinePoint point) {
  const auto found = std::find_if(items.rbegin(), items.rend(), [&](const TimelineItem& item) {
    return item.rect && item.rect->contains(point, cardMargin);
  });
  return found == items.rend() ? nullptr : &*found;
}

// The nearest of those that reach as far as the point, the earlier of two that are equally near.
const TimelineItem* markerAt(const std::vector<TimelineItem>& items,
                             double axis,
                             TimelinePoint point) {
  const TimelineItem* nearest = nullptr;
  double nearestDistance = 0;
  for (const TimelineItem& item : items) {
    const double radius = bySize(markerRadii, item.size);
    const double distance = squaredDistance({item.markerX, axis}, point);
    if (distance <= radius * radius && (nearest == nullptr || distance < nearestDistance)) {
      nearest = &item;
      nearestDistance = distance;
    }
  }
  return nearest;
}

template <typename Record>
const Record* recordWithID(const std::vector<Record>& records, std::optional<std::string_view> id) {
  if (!id)
    return nullptr;
  const auto found = std::ranges::find(records, *id, &Record::id);
  return found == records.end() ? nullptr : &*found;
}

}  // namespace

TimelineLayout TimelineLayout::make(TimelineInput input) {
  TimelineLayout layout;
  layout.geometry = TimelineGeometry::make(input.size, input.range);
  layout.end = input.end;
  layout.version = input.version;
  if (layout.geometry.isEmpty())
    return layout;

  input.end = withinCalendar(input.end);
  input.now = withinCalendar(input.now);
  layout.ticks = gridTicks(layout.geometry, input.end, input.range);
  layout.edits = timelineEditMarks(
      std::move(input.edits), layout.geometry, input.end, input.range, input.projectOrder);
  Draft draft =
      draftOf(rankedGroups(std::move(input.events), layout.geometry.pointsPerSecond, input.sizes),
              layout.geometry,
              input);
  const auto rows = placeTimelineCards(draft.cards, layout.geometry, input.previousRows);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (!rows[i])
      continue;
    const TimelineCandidate& card = draft.cards[i];
    putCard(draft.items[i], *rows[i], card.left, card.right - card.left, layout.geometry);
    layout.rows[draft.items[i].id] = *rows[i];
  }
  layout.items = inDrawingOrder(std::move(draft.items));
  return layout;
}

const TimelineItem* TimelineLayout::item(std::optional<std::string_view> id) const {
  return recordWithID(items, id);
}

const TimelineEditMark* TimelineLayout::edit(std::optional<std::string_view> id) const {
  return recordWithID(edits, id);
}

std::optional<TimelineHit> TimelineLayout::hitTest(TimelinePoint point) const {
  const TimelineItem* item = cardAt(items, point);
  if (item == nullptr)
    item = markerAt(items, geometry.mid, point);
  if (item != nullptr)
    return TimelineHit{TimelineHit::Kind::item, item->id};
  const auto mark = std::find_if(edits.rbegin(), edits.rend(), [&](const TimelineEditMark& edit) {
    return std::abs(point.x - (edit.x + editMiddle)) <= editReach &&
           point.y >= geometry.mid + editTop && point.y <= geometry.mid + editBottom + edit.height;
  });
  if (mark != edits.rend())
    return TimelineHit{TimelineHit::Kind::edit, mark->id};
  return std::nullopt;
}

const TimelineItem* TimelineLayout::step(std::optional<std::string_view> from,
                                         TimelineStep direction) const {
  if (items.empty())
    return nullptr;
  const TimelineItem* start = item(from);
  if (start == nullptr)
    return &items.back();
  if (direction == TimelineStep::newer)
    return start == &items.back() ? start : start + 1;
  return start == &items.front() ? start : start - 1;
}

}  // namespace tessivane
