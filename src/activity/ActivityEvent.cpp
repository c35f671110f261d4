#include "activity/ActivityEvent.h"

#include <algorithm>
#include <string>

#include "support/Hasher.h"
#include "support/Text.h"

namespace tessivane {

namespace {

constexpr std::size_t shortRefCharacters = 7;
constexpr std::string_view worktreeDetail = "worktree";

struct KindFacts {
  ActivityKind kind = ActivityKind::commit;
  std::string_view rawValue = {};
  std::string_view filterLabel = {};
  TimelineSizeClass size = TimelineSizeClass::small;
};

// One row a kind, in the order of the enumeration.
constexpr std::array<KindFacts, allActivityKinds.size()> kinds = {{
    {ActivityKind::commit, "commit", "Commits", TimelineSizeClass::small},
    {ActivityKind::prOpened, "prOpened", "PRs opened", TimelineSizeClass::medium},
    {ActivityKind::prMerged, "prMerged", "PRs merged", TimelineSizeClass::large},
    {ActivityKind::needsYou, "needsYou", "Needs you", TimelineSizeClass::large},
    {ActivityKind::finished, "finished", "Finished", TimelineSizeClass::medium},
    {ActivityKind::started, "started", "Started", TimelineSizeClass::small},
    {ActivityKind::branched, "branched", "Branches", TimelineSizeClass::small},
}};

const KindFacts& facts(ActivityKind kind) {
  return kinds.at(static_cast<std::size_t>(kind));
}

// Equal texts say nothing new.
std::optional<std::string> unlessEqual(const std::optional<std::string>& text,
                                       const std::string& other) {
  return text == other ? std::nullopt : text;
}

}  // namespace

std::string_view rawValue(ActivityKind kind) {
  return facts(kind).rawValue;
}

std::optional<ActivityKind> activityKind(std::string_view text) {
  const auto* found = std::ranges::find(kinds, text, &KindFacts::rawValue);
  if (found == kinds.end())
    return std::nullopt;
  return found->kind;
}

std::string_view filterLabel(ActivityKind kind) {
  return facts(kind).filterLabel;
}

TimelineSizeClass defaultSize(ActivityKind kind) {
  return facts(kind).size;
}

std::string_view rawValue(ActivityRange range) {
  constexpr std::array<std::string_view, allActivityRanges.size()> texts = {"15m", "1h", "6h"};
  return texts.at(static_cast<std::size_t>(range));
}

std::optional<ActivityRange> activityRange(std::string_view text) {
  for (const ActivityRange range : allActivityRanges) {
    if (rawValue(range) == text)
      return range;
  }
  return std::nullopt;
}

Seconds span(ActivityRange range) {
  constexpr std::array<Seconds, allActivityRanges.size()> spans = {
      Seconds(900), Seconds(3600), Seconds(21600)};
  return spans.at(static_cast<std::size_t>(range));
}

bool isGitHubRoot(std::string_view projectRoot) {
  return projectRoot.starts_with(gitHubRootPrefix);
}

std::string EditBucket::id() const {
  const auto seconds = std::chrono::duration_cast<std::chrono::seconds>(start.time_since_epoch());
  return projectRoot + ":" + sessionID.value_or("-") + ":" + std::to_string(seconds.count());
}

std::optional<std::string> ActivityEvent::shortRef() const {
  switch (kind) {
    case ActivityKind::commit:
      if (!ref)
        return std::nullopt;
      return std::string(prefixCharacters(*ref, shortRefCharacters));
    case ActivityKind::prOpened:
    case ActivityKind::prMerged:
    case ActivityKind::needsYou:
    case ActivityKind::finished:
      return ref;
    case ActivityKind::started:
    case ActivityKind::branched:
      return std::nullopt;
  }
  return std::nullopt;
}

std::optional<std::string> ActivityEvent::startedParent() const {
  return kind == ActivityKind::started ? unlessEqual(sessionTitle, title) : std::nullopt;
}

std::optional<std::string> ActivityEvent::branchedOn() const {
  if (kind != ActivityKind::branched || detail != worktreeDetail)
    return std::nullopt;
  return unlessEqual(branch, title);
}

std::optional<std::string> ActivityEvent::cardDetail() const {
  if (kind == ActivityKind::started)
    return std::nullopt;
  if (kind != ActivityKind::branched)
    return detail;
  if (const auto on = branchedOn())
    return "On " + *on;
  return std::nullopt;
}

std::size_t hashValue(const EditBucket& bucket) {
  Hasher hasher;
  hasher.add(bucket.projectRoot)
      .add(bucket.projectName)
      .add(bucket.sessionID)
      .add(bucket.start)
      .add(bucket.files);
  for (const std::string& path : bucket.paths)
    hasher.add(path);
  return hasher.value();
}

std::size_t hashValue(const ActivityEvent& event) {
  return Hasher()
      .add(event.id)
      .add(event.kind)
      .add(event.date)
      .add(event.projectRoot)
      .add(event.projectName)
      .add(event.sessionID)
      .add(event.sessionTitle)
      .add(event.owner)
      .add(event.engine)
      .add(event.ref)
      .add(event.title)
      .add(event.detail)
      .add(event.branch)
      .add(event.firstSeen)
      .value();
}

}  // namespace tessivane
