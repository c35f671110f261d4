#include "activity/TimelineRows.h"

#include <algorithm>
#include <array>
#include <iterator>
#include <map>

namespace tessivane {

namespace {

// The cards of one row. They never overlap, so the two neighbours of a place decide whether it is
// free, however many there are.
class Row final {
 public:
  bool place(double left, double right) {
    const auto next = rightByLeft_.lower_bound(left);
    if (next != rightByLeft_.end() && next->first < right + timelineCardAir)
      return false;
    if (next != rightByLeft_.begin() && std::prev(next)->second > left - timelineCardAir)
      return false;
    rightByLeft_.emplace_hint(next, left, right);
    return true;
  }

 private:
  std::map<double, double> rightByLeft_;
};

class Placement final {
 public:
  explicit Placement(const TimelineGeometry& geometry)
      : above_(geometry.aboveRows.size()), below_(geometry.belowRows.size()) {}

  bool place(const TimelineCandidate& card, int row) {
    std::vector<Row>& rows = card.side == TimelineSide::above ? above_ : below_;
    const auto index = static_cast<std::size_t>(row);
    return index < rows.size() && rows[index].place(card.left, card.right);
  }

 private:
  std::vector<Row> above_;
  std::vector<Row> below_;
};

// Where cards stood before. Keeps the room for an id, as there are many to look up.
class PreviousRows final {
 public:
  explicit PreviousRows(const TimelineRows& rows) : rows_(rows) {}

  std::optional<int> operator[](const TimelineCandidate& card) {
    id_ = card.id;
    const auto found = rows_.find(id_);
    if (found == rows_.end())
      return std::nullopt;
    const auto allowed = allowedTimelineRows(card.side, card.size);
    if (std::ranges::find(allowed, found->second) == allowed.end())
      return std::nullopt;
    return found->second;
  }

 private:
  const TimelineRows& rows_;
  std::string id_;
};

}  // namespace

std::span<const int> allowedTimelineRows(TimelineSide side, TimelineSizeClass size) {
  static constexpr std::array nearRows = {0, 1, 2};
  static constexpr std::array middleRows = {2, 3};
  static constexpr std::array farRows = {3, 4};
  if (side == TimelineSide::below || size == TimelineSizeClass::small)
    return nearRows;
  if (size == TimelineSizeClass::medium)
    return middleRows;
  return farRows;
}

std::vector<std::optional<int>> placeTimelineCards(std::span<const TimelineCandidate> candidates,
                                                   const TimelineGeometry& geometry,
                                                   const TimelineRows& previousRows) {
  Placement placement(geometry);
  std::vector<std::optional<int>> result(candidates.size());
  PreviousRows previous(previousRows);
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    const auto row = previous[candidates[i]];
    if (row && placement.place(candidates[i], *row))
      result[i] = row;
  }
  for (std::size_t i = 0; i < candidates.size(); ++i) {
    if (result[i])
      continue;
    for (const int row : allowedTimelineRows(candidates[i].side, candidates[i].size)) {
      if (placement.place(candidates[i], row)) {
        result[i] = row;
        break;
      }
    }
  }
  return result;
}

}  // namespace tessivane
