#pragma once

// What the timeline's tests share: a text measure made of a table, and short ways to say what
// happened when.

#include <algorithm>
#include <array>
#include <cmath>
#include <map>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "SampleEvents.h"
#include "activity/TimelineLayout.h"

namespace tessivane {

inline const Date ten = *isoDate("2026-10-05T10:00:00Z");

inline Date beforeTen(double seconds) {
  return *dateFromSeconds(secondsSince1970(ten) - seconds);
}

/// Every character of a style is as wide as any other, whatever the font.
inline double tableWidth(std::string_view text, TimelineTextStyle style) {
  constexpr std::array widths = {7.2, 6.0, 6.4, 6.6, 6.0, 6.0, 6.3};
  double characters = 0;
  for (const char c : text)
    characters += (static_cast<unsigned char>(c) & 0xC0U) == 0x80 ? 0 : 1;
  return std::ceil(characters * widths.at(static_cast<std::size_t>(style)));
}

inline ActivityEvent happened(ActivityKind kind, Date date, std::string id) {
  return {.id = std::move(id),
          .kind = kind,
          .date = date,
          .projectRoot = "/p/shed",
          .projectName = "shed",
          .sessionID = "claude:1",
          .sessionTitle = "Tidy the shed",
          .ref = "0123456789",
          .title = "Sweep",
          .firstSeen = date};
}

/// An hour of 1000 by 600 points that ends at ten: 0.2433 points a second.
inline TimelineInput hourOf(std::vector<ActivityEvent> events) {
  return {.events = std::move(events),
          .size = {.width = 1000, .height = 600},
          .end = ten,
          .now = ten,
          .measure = {.width = tableWidth}};
}

/// Cards of one row are at least eight points apart.
inline void expectCardsApart(const TimelineLayout& layout) {
  std::map<std::pair<TimelineSide, int>, std::vector<TimelineRect>> rows;
  for (const TimelineItem& item : layout.items) {
    ASSERT_TRUE(item.row.has_value() == item.rect.has_value());
    if (item.row)
      rows[{item.side, *item.row}].push_back(*item.rect);
  }
  for (auto& [place, cards] : rows) {
    std::ranges::sort(cards, {}, &TimelineRect::x);
    for (std::size_t i = 1; i < cards.size(); ++i)
      ASSERT_GE(cards[i].x - cards[i - 1].maxX(), 8 - 1e-6) << "row " << place.second;
  }
}

}  // namespace tessivane
