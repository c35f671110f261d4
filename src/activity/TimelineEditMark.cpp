#include "activity/TimelineEditMark.h"

#include <algorithm>
#include <chrono>
#include <numeric>
#include <string_view>
#include <unordered_map>
#include <utility>

#include <fmt/format.h>

#include "support/Hasher.h"

namespace tessivane {

namespace {

using std::chrono::seconds;

constexpr std::size_t laneCount = 5;
constexpr double laneDistance = 3.5;
constexpr double laneWithoutOrder = -2;
constexpr double pointsPerFile = 2.2;
constexpr double minHeight = 5;
constexpr double maxHeight = 30;
// Of one bucket; sums of these cannot overflow.
constexpr std::int64_t maxFiles = 1'000'000'000;

struct SlotKey {
  std::string_view root = {};
  std::int64_t number = 0;

  friend bool operator==(const SlotKey&, const SlotKey&) = default;
};

struct SlotHash {
  std::size_t operator()(const SlotKey& key) const {
    return Hasher().add(key.root).add(key.number).value();
  }
};

// Tells how far a project's marks stand to the side.
class Lanes final {
 public:
  explicit Lanes(std::span<const std::string> projectOrder) {
    for (std::size_t i = 0; i < projectOrder.size(); ++i)
      places_.emplace(projectOrder[i], i);
  }

  double offset(std::string_view root) const {
    if (places_.empty())
      return laneWithoutOrder * laneDistance;
    const auto place = places_.find(root);
    const std::size_t lane = place == places_.end() ? 0 : place->second % laneCount;
    return (static_cast<double>(lane) - 2) * laneDistance;
  }

 private:
  std::unordered_map<std::string_view, std::size_t> places_;
};

std::int64_t slotNumber(Date start, seconds length) {
  const Date date = withinCalendar(start);
  const auto whole = std::chrono::floor<seconds>(date).time_since_epoch();
  return (whole - ((whole % length) + length) % length) / length;
}

void removeRepeated(std::vector<std::string>& paths) {
  std::vector<std::size_t> order(paths.size());
  std::iota(order.begin(), order.end(), std::size_t{0});
  std::ranges::stable_sort(order, {}, [&](std::size_t i) -> std::string_view { return paths[i]; });
  const auto equal = [&](std::size_t i, std::size_t k) { return paths[i] == paths[k]; };
  order.erase(std::unique(order.begin(), order.end(), equal), order.end());
  if (order.size() == paths.size())
    return;
  std::ranges::sort(order);
  std::vector<std::string> firsts;
  firsts.reserve(order.size());
  for (const std::size_t i : order)
    firsts.push_back(std::move(paths[i]));
  paths = std::move(firsts);
}

TimelineEditMark emptyMark(const EditBucket& bucket, std::int64_t number, seconds length) {
  return {.id = fmt::format("edit:{}|{}", bucket.projectRoot, number),
          .projectRoot = bucket.projectRoot,
          .projectName = bucket.projectName,
          .sessionID = bucket.sessionID,
          .start = Date(number * length),
          .length = length};
}

void add(EditBucket& bucket, TimelineEditMark& mark) {
  mark.files += std::clamp<std::int64_t>(bucket.files, 0, maxFiles);
  if (mark.sessionID != bucket.sessionID)
    mark.sessionID = std::nullopt;
  mark.paths.insert(mark.paths.end(),
                    std::make_move_iterator(bucket.paths.begin()),
                    std::make_move_iterator(bucket.paths.end()));
}

}  // namespace

std::vector<TimelineEditMark> timelineEditMarks(std::vector<EditBucket> edits,
                                                const TimelineGeometry& geometry,
                                                Date end,
                                                ActivityRange range,
                                                std::span<const std::string> projectOrder) {
  const seconds length(range == ActivityRange::h6 ? 600 : 60);
  std::vector<TimelineEditMark> marks;
  std::unordered_map<SlotKey, std::size_t, SlotHash> slots;
  for (EditBucket& bucket : edits) {
    if (bucket.start > end)
      continue;
    const SlotKey key{bucket.projectRoot, slotNumber(bucket.start, length)};
    const auto [slot, isNew] = slots.emplace(key, marks.size());
    if (isNew)
      marks.push_back(emptyMark(bucket, key.number, length));
    add(bucket, marks[slot->second]);
  }
  const Lanes lanes(projectOrder);
  for (TimelineEditMark& mark : marks) {
    removeRepeated(mark.paths);
    mark.x = geometry.x(mark.start + length / 2, end) + lanes.offset(mark.projectRoot);
    mark.height = std::min(pointsPerFile * static_cast<double>(mark.files) + minHeight, maxHeight);
  }
  return marks;
}

}  // namespace tessivane
