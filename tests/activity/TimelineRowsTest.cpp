#include "activity/TimelineRows.h"

#include <algorithm>
#include <random>
#include <string>

#include <gtest/gtest.h>

#include "TimelineScene.h"
#include "helpers/Random.h"

namespace tessivane {
namespace {

using enum ActivityKind;
using enum TimelineSide;

// Says the same as `placeTimelineCards`, by comparing every card with every other.
class PlainRows final {
 public:
  PlainRows(const std::vector<TimelineCandidate>& cards, const TimelineGeometry& geometry)
      : cards_(cards), geometry_(geometry), result(cards.size()) {}

  void place(std::size_t card, int row) {
    const auto rows = static_cast<int>(geometry_.rows(cards_[card].side).size());
    if (!result[card] && row < rows && isFree(card, row))
      result[card] = row;
  }

 private:
  bool isFree(std::size_t card, int row) const {
    for (std::size_t i = 0; i < cards_.size(); ++i) {
      if (result[i] == row && cards_[i].side == cards_[card].side &&
          cards_[i].right > cards_[card].left - 8 && cards_[i].left < cards_[card].right + 8) {
        return false;
      }
    }
    return true;
  }

  const std::vector<TimelineCandidate>& cards_;
  const TimelineGeometry& geometry_;

 public:
  std::vector<std::optional<int>> result;
};

// Cards of whole points, so that many are just eight apart.
TEST(TimelineRows, agreeWithComparingEveryPair) {
  const auto seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  Random random(seed);
  std::vector<std::string> ids(40);
  for (std::size_t i = 0; i < ids.size(); ++i)
    ids[i] = std::to_string(i);
  const auto upTo = [&](std::size_t bound) { return static_cast<double>(random.below(bound)); };
  for (int round = 0; round < 300; ++round) {
    const auto geometry =
        TimelineGeometry::make({.width = 1000, .height = 100 + upTo(500)}, ActivityRange::h1);
    std::vector<TimelineCandidate> cards;
    TimelineRows previous;
    for (const std::string& id : ids) {
      const double left = upTo(900);
      cards.push_back({.id = id,
                       .side = random.chance(50) ? above : below,
                       .size = static_cast<TimelineSizeClass>(random.below(3)),
                       .left = left,
                       .right = left + 30 + upTo(90)});
      if (random.chance(50))
        previous[id] = static_cast<int>(random.below(8)) - 1;
    }
    const auto allowed = [&](std::size_t i) {
      return allowedTimelineRows(cards[i].side, cards[i].size);
    };
    PlainRows plain(cards, geometry);
    for (std::size_t i = 0; i < cards.size(); ++i) {
      const auto row = previous.find(ids[i]);
      if (row != previous.end() && std::ranges::count(allowed(i), row->second) > 0)
        plain.place(i, row->second);
    }
    for (std::size_t i = 0; i < cards.size(); ++i) {
      for (const int row : allowed(i))
        plain.place(i, row);
    }
    ASSERT_EQ(placeTimelineCards(cards, geometry, previous), plain.result);
  }
}

TEST(TimelineRows, aFreeRowOfBeforeIsKeptAndAnotherSizesIsNot) {
  struct Row {
    ActivityKind kind = commit;
    int before = 0;
    int expected = 0;
  };
  for (const Row& row : {Row{commit, 2, 2},
                         Row{commit, 3, 0},
                         Row{commit, -1, 0},
                         Row{prMerged, 4, 4},
                         Row{prMerged, 0, 3},
                         Row{finished, 1, 1}}) {
    TimelineInput input = hourOf({happened(row.kind, beforeTen(60), "e")});
    input.previousRows["e"] = row.before;
    const TimelineLayout layout = TimelineLayout::make(input);
    EXPECT_EQ(layout.items.at(0).row, row.expected) << row.before;
    EXPECT_EQ(layout.rows.at("e"), row.expected);
  }
}

}  // namespace
}  // namespace tessivane
