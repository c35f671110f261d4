#include "activity/TimelineCallout.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include <fmt/format.h>

namespace tessivane {

namespace {

using enum TimelineTextStyle;

constexpr double largeTextWidth = 201;
constexpr double largeFrame = 49;
constexpr double betweenLabelAndProject = 19;
constexpr double mediumFrame = 58;
constexpr double smallTitleWidth = 132;
constexpr double smallFrame = 33;

std::string kindLabel(const ActivityEvent& event) {
  switch (event.kind) {
    case ActivityKind::commit:
      return timelineText(event.shortRef().value_or(""));
    case ActivityKind::prOpened:
      return "Opened #" + timelineText(event.ref.value_or(""));
    case ActivityKind::prMerged:
      return "Merged #" + timelineText(event.ref.value_or(""));
    case ActivityKind::needsYou:
      return "Needs you";
    case ActivityKind::finished:
      return "Finished";
    case ActivityKind::started:
      return "Started";
    case ActivityKind::branched:
      return event.detail == "worktree" ? "worktree" : "branch";
  }
  return {};
}

std::string commitCount(std::size_t count) {
  return fmt::format("{} commits", count);
}

bool isNamedAfterSession(ActivityKind kind) {
  return kind == ActivityKind::needsYou || kind == ActivityKind::finished ||
         kind == ActivityKind::started;
}

std::string_view titleOf(const ActivityEvent& event) {
  return isNamedAfterSession(event.kind) && event.sessionTitle ? *event.sessionTitle : event.title;
}

TimelineCallout largeCallout(std::span<const ActivityEvent> group,
                             const TimelineTextMeasure& measure) {
  const ActivityEvent& lead = group.front();
  TimelineFittedText title =
      measure.fit(group.size() > 1 ? std::string_view(commitCount(group.size())) : titleOf(lead),
                  cardTitle,
                  largeTextWidth);
  std::string label = kindLabel(lead);
  const double metaWidth = measure.boundedWidth(label, cardMetaEmphasis) +
                           measure.boundedWidth(timelineText(lead.projectName), cardMeta) +
                           betweenLabelAndProject;
  // A cut title was wider than the limit.
  const double titleWidth = title.isCut ? largeTextWidth : title.width;
  return {
      .width = std::ceil(std::min(std::max(metaWidth, titleWidth), largeTextWidth) + largeFrame),
      .title = std::move(title.text),
      .label = std::move(label)};
}

TimelineCallout mediumCallout(std::span<const ActivityEvent> group,
                              const TimelineTextMeasure& measure) {
  const ActivityEvent& lead = group.front();
  std::string title = timelineText(lead.projectName);
  std::string label = group.size() > 1 ? commitCount(group.size()) : kindLabel(lead);
  const double width = measure.boundedWidth(label, pillLabel) +
                       measure.boundedWidth(title, pillProject) + mediumFrame;
  return {.width = std::ceil(width), .title = std::move(title), .label = std::move(label)};
}

TimelineCallout smallCallout(std::span<const ActivityEvent> group,
                             const TimelineTextMeasure& measure) {
  const ActivityEvent& lead = group.front();
  TimelineFittedText title = measure.fit(
      group.size() > 1 ? std::string_view(commitCount(group.size())) : std::string_view(lead.title),
      tag,
      smallTitleWidth);
  std::string label = kindLabel(lead);
  const double width = title.width + measure.boundedWidth(label, tagRef) + smallFrame;
  return {.width = std::ceil(width), .title = std::move(title.text), .label = std::move(label)};
}

}  // namespace

TimelineCallout timelineCallout(std::span<const ActivityEvent> group,
                                TimelineSizeClass size,
                                const TimelineTextMeasure& measure) {
  switch (size) {
    case TimelineSizeClass::large:
      return largeCallout(group, measure);
    case TimelineSizeClass::medium:
      return mediumCallout(group, measure);
    case TimelineSizeClass::small:
      return smallCallout(group, measure);
  }
  return {};
}

}  // namespace tessivane
