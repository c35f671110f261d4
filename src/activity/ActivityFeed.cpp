#include "activity/ActivityFeed.h"

#include <algorithm>
#include <compare>
#include <string_view>
#include <tuple>
#include <utility>

#include "support/NameOrder.h"
#include "support/Paths.h"

namespace tessivane {

namespace {

constexpr const char* showEditsKey = "activity.showEdits";

// A timer that is on time to the instant could still find the event in the window.
constexpr Seconds ageOutDelay{0.05};

std::string tagSizeKey(ActivityKind kind) {
  return "activity.tagSize." + std::string(rawValue(kind));
}

/// Those of a list ordered by date that lie in the window.
template <typename Item, typename DateOf>
std::span<const Item> inWindow(std::span<const Item> items,
                               ActivityFeed::Window window,
                               DateOf date) {
  const auto begin = std::ranges::upper_bound(items, window.start, {}, date);
  const auto end = std::ranges::upper_bound(begin, items.end(), window.end, {}, date);
  return {begin, end};
}

bool namePrecedes(const std::string& a, const std::string& b) {
  const std::string_view nameOfA = lastPathComponent(a);
  const std::string_view nameOfB = lastPathComponent(b);
  if (nameOfA.empty() != nameOfB.empty())
    return nameOfB.empty();
  const auto order = compareNames(nameOfA, nameOfB);
  // Projects of one name keep one order, whatever happened last.
  return std::is_eq(order) ? a < b : std::is_lt(order);
}

}  // namespace

ActivityFeed::ActivityFeed(Environment environment, std::unique_ptr<ActivitySource> source)
    : environment_(std::move(environment)), source_(std::move(source)) {
  readSettings();
  ageOutObserver_ = subscribe([this] { rescheduleAgeOutSoon(); });
  defaultsObserver_ = environment_.defaults->subscribe([this] { readSettings(); });
}

ActivityFeed::~ActivityFeed() {
  if (isRunning_)
    source_->stop();
}

Subscription ActivityFeed::subscribe(std::function<void()> willChange) const {
  return willChange_.subscribe(std::move(willChange));
}

void ActivityFeed::start() {
  if (isRunning_ || source_ == nullptr)
    return;
  isRunning_ = true;
  updateStepLoop();
  scheduleAgeOut(environment_.now());
  struct Batch {
    std::vector<ActivityEvent> events;
    std::vector<EditBucket> edits;
  };
  // On the source's thread; the feed is looked for on the main one only.
  source_->start([queue = environment_.mainQueue, weak = std::weak_ptr<ActivityFeed*>(self_)](
                     std::vector<ActivityEvent> events, std::vector<EditBucket> edits) {
    auto batch = std::make_shared<Batch>();
    batch->events = std::move(events);
    batch->edits = std::move(edits);
    queue->async([weak, batch] {
      if (const auto self = weak.lock()) {
        ActivityFeed& feed = **self;
        feed.append(std::move(batch->events), std::move(batch->edits), feed.environment_.now());
      }
    });
  });
}

void ActivityFeed::append(std::vector<ActivityEvent> events,
                          std::vector<EditBucket> edits,
                          Date now) {
  const Date cutoff = shifted(now, -historySpan);
  if (!history_.wouldChange(events, cutoff) && !editsWouldChange(edits, cutoff))
    return;
  announce();

  std::int64_t hidden = 0;
  const bool changed =
      history_.merge(std::move(events), cutoff, [this, &hidden](const ActivityEvent& event) {
        if (enabledKinds_.contains(event.kind) && isShown(event.projectRoot))
          ++hidden;
      });
  if (changed) {
    ++eventsRevision_;
    publishEvents(now);
  }
  for (EditBucket& bucket : edits) {
    if (bucket.start >= cutoff)
      edits_.put(std::move(bucket));
  }
  edits_.settle();
  edits_.dropBefore(cutoff);
  if (pausedEnd_ && !replay_)
    pendingCount_ += hidden;
}

bool ActivityFeed::editsWouldChange(std::span<const EditBucket> batch, Date cutoff) const {
  if (!edits().empty() && edits().front().start < cutoff)
    return true;
  return std::ranges::any_of(batch, [&](const EditBucket& bucket) {
    if (bucket.start < cutoff)
      return false;
    const EditBucket* known = edits_.find(bucket.id());
    return known == nullptr || *known != bucket;
  });
}

std::span<const ActivityEvent> ActivityFeed::events() const {
  return replay_ ? std::span(replayedEvents_) : history_.events();
}

void ActivityFeed::setPausedEnd(std::optional<Date> end) {
  if (end == pausedEnd_)
    return;
  announce();
  pausedEnd_ = end;
  if (!pausedEnd_)
    pendingCount_ = 0;
}

ActivityFeed::Window ActivityFeed::window(Date now) const {
  const Date end = replay_ ? replay_->position(now) : pausedEnd_.value_or(now);
  return {.start = shifted(end, -span(range_)), .end = end};
}

std::optional<Date> ActivityFeed::viewEnd() const {
  return replay_ ? replayEnd(environment_.now()) : pausedEnd_;
}

std::optional<Date> ActivityFeed::replayEnd(Date now) const {
  if (!replay_)
    return std::nullopt;
  return replay_->position(now);
}

void ActivityFeed::setRange(ActivityRange range) {
  change(range_, range);
}

void ActivityFeed::setEnabledKinds(Kinds kinds) {
  change(enabledKinds_, std::move(kinds));
}

void ActivityFeed::solo(ActivityKind kind) {
  const Kinds alone = {kind};
  setEnabledKinds(enabledKinds_ == alone ? Kinds(allActivityKinds.begin(), allActivityKinds.end())
                                         : alone);
}

void ActivityFeed::setProjectFilter(Projects roots) {
  change(projectFilter_, std::move(roots));
}

void ActivityFeed::setShowEdits(bool shows) {
  change(showEdits_, shows);
  environment_.defaults->set(showEditsKey, shows);
}

TimelineSizeClass ActivityFeed::tagSize(ActivityKind kind) const {
  const auto found = tagSizes_.find(kind);
  return found == tagSizes_.end() ? defaultSize(kind) : found->second;
}

void ActivityFeed::setTagSize(TimelineSizeClass size, ActivityKind kind) {
  if (size == defaultSize(kind)) {
    environment_.defaults->remove(tagSizeKey(kind));
  } else {
    environment_.defaults->set(tagSizeKey(kind), static_cast<int>(size));
  }
  change(tagSizes_, storedTagSizes());
}

bool ActivityFeed::storedShowEdits() const {
  return environment_.defaults->boolean(showEditsKey).value_or(true);
}

ActivityFeed::TagSizes ActivityFeed::storedTagSizes() const {
  constexpr std::array sizes = {
      TimelineSizeClass::large, TimelineSizeClass::medium, TimelineSizeClass::small};
  TagSizes result;
  for (const ActivityKind kind : allActivityKinds) {
    const auto number = environment_.defaults->number(tagSizeKey(kind));
    for (const TimelineSizeClass size : sizes) {
      if (number == static_cast<double>(size) && size != defaultSize(kind))
        result[kind] = size;
    }
  }
  return result;
}

void ActivityFeed::readSettings() {
  change(showEdits_, storedShowEdits());
  change(tagSizes_, storedTagSizes());
}

bool ActivityFeed::isShown(const std::string& projectRoot) const {
  return projectFilter_.empty() || projectFilter_.contains(projectRoot);
}

std::span<const ActivityEvent> ActivityFeed::eventsInWindow(Date now) const {
  return inWindow(events(), window(now), &ActivityEvent::date);
}

std::span<const EditBucket> ActivityFeed::editsInWindow(Date now) const {
  Window bounds = window(now);
  bounds.start = shifted(bounds.start, -bucketSpan);
  return inWindow(edits(), bounds, &EditBucket::start);
}

std::vector<ActivityEvent> ActivityFeed::visibleEvents(Date now) const {
  std::vector<ActivityEvent> visible;
  for (const ActivityEvent& event : eventsInWindow(now)) {
    if (enabledKinds_.contains(event.kind) && isShown(event.projectRoot))
      visible.push_back(event);
  }
  return visible;
}

std::vector<EditBucket> ActivityFeed::visibleEdits(Date now) const {
  std::vector<EditBucket> visible;
  if (!showEdits_)
    return visible;
  for (const EditBucket& bucket : editsInWindow(now)) {
    if (isShown(bucket.projectRoot))
      visible.push_back(bucket);
  }
  return visible;
}

std::map<ActivityKind, std::size_t> ActivityFeed::counts(Date now) const {
  std::map<ActivityKind, std::size_t> result;
  for (const ActivityKind kind : allActivityKinds)
    result[kind] = 0;
  for (const ActivityEvent& event : eventsInWindow(now)) {
    if (isShown(event.projectRoot))
      ++result[event.kind];
  }
  return result;
}

std::map<std::string, std::size_t> ActivityFeed::projectCounts(Date now) const {
  std::map<std::string, std::size_t> result;
  for (const ActivityEvent& event : eventsInWindow(now)) {
    if (isShown(event.projectRoot))
      ++result[event.projectRoot];
  }
  return result;
}

std::size_t ActivityFeed::editedFileCount(Date now) const {
  std::vector<std::pair<std::string_view, std::string_view>> files;
  for (const EditBucket& bucket : editsInWindow(now)) {
    if (!isShown(bucket.projectRoot))
      continue;
    for (const std::string& path : bucket.paths)
      files.emplace_back(bucket.projectRoot, path);
  }
  std::ranges::sort(files);
  return static_cast<std::size_t>(std::unique(files.begin(), files.end()) - files.begin());
}

std::vector<std::string> ActivityFeed::projects(Date start, Date end) const {
  const Window bounds{.start = start, .end = end};
  Projects roots;
  for (const ActivityEvent& event : inWindow(events(), bounds, &ActivityEvent::date))
    roots.insert(event.projectRoot);
  for (const EditBucket& bucket : inWindow(edits(), bounds, &EditBucket::start))
    roots.insert(bucket.projectRoot);
  std::vector<std::string> sorted(roots.begin(), roots.end());
  std::ranges::sort(sorted, namePrecedes);
  return sorted;
}

// Whatever is stored counts, whether a filter hides it or not: the filters change more often than
// the window.
std::optional<Date> ActivityFeed::nextAgeOut(Date now) const {
  if (!isLive())
    return std::nullopt;
  const Seconds span = tessivane::span(range_);
  const Date start = shifted(now, -span);
  std::optional<Date> next;
  const auto event = std::ranges::upper_bound(storedEvents(), start, {}, &ActivityEvent::date);
  if (event != storedEvents().end())
    next = shifted(event->date, span);
  const auto bucket =
      std::ranges::upper_bound(edits(), shifted(start, -bucketSpan), {}, &EditBucket::start);
  if (bucket != edits().end()) {
    const Date leaves = shifted(bucket->start, bucketSpan + span);
    next = std::min(next.value_or(leaves), leaves);
  }
  return next;
}

void ActivityFeed::scheduleAgeOut(Date now) {
  ageOutTimer_.cancel();
  const std::optional<Date> next = nextAgeOut(now);
  if (!next)
    return;
  ageOutTimer_ = environment_.mainQueue->after(
      elapsed(now, *next) + ageOutDelay, ifAlive([](ActivityFeed& feed) {
        feed.change(feed.ageOutTick_, feed.ageOutTick_ + 1);
        feed.scheduleAgeOut(feed.environment_.now());
      }));
}

// However many changes a burst has, they cost one search and one timer.
void ActivityFeed::rescheduleAgeOutSoon() {
  if (std::exchange(ageOutPending_, true))
    return;
  environment_.mainQueue->async(ifAlive([](ActivityFeed& feed) {
    feed.ageOutPending_ = false;
    feed.scheduleAgeOut(feed.environment_.now());
  }));
}

}  // namespace tessivane
