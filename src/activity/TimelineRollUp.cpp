#include "activity/TimelineRollUp.h"

#include <algorithm>
#include <cmath>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "support/Hasher.h"

namespace tessivane {

namespace {

constexpr double binPoints = 8;
constexpr double minBinSeconds = 1;

struct Bin {
  std::string_view owner = {};
  double number = 0;

  friend bool operator==(const Bin&, const Bin&) = default;
};

struct BinHash {
  std::size_t operator()(const Bin& bin) const {
    return Hasher().add(bin.owner).add(bin.number).value();
  }
};

bool isCommit(const ActivityEvent& event) {
  return event.kind == ActivityKind::commit;
}

}  // namespace

std::vector<std::vector<ActivityEvent>> rollUp(std::vector<ActivityEvent> events,
                                               double pointsPerSecond) {
  const double binSeconds = std::max(binPoints / pointsPerSecond, minBinSeconds);
  const auto singles = static_cast<std::size_t>(
      std::ranges::count_if(events, [](const ActivityEvent& event) { return !isCommit(event); }));

  // Which group each event belongs to is settled before anything moves: the bins look at its texts.
  std::unordered_map<Bin, std::size_t, BinHash> bins;
  std::vector<std::size_t> groupOf;
  groupOf.reserve(events.size());
  std::size_t nextSingle = 0;
  for (const ActivityEvent& event : events) {
    if (isCommit(event)) {
      const Bin bin{.owner = event.sessionID ? *event.sessionID : event.projectRoot,
                    .number = std::floor(secondsSince1970(event.date) / binSeconds)};
      groupOf.push_back(bins.emplace(bin, singles + bins.size()).first->second);
    } else {
      groupOf.push_back(nextSingle++);
    }
  }

  std::vector<std::vector<ActivityEvent>> groups(singles + bins.size());
  for (std::size_t i = 0; i < events.size(); ++i)
    groups[groupOf[i]].push_back(std::move(events[i]));
  for (std::vector<ActivityEvent>& group : groups) {
    if (group.size() > 1)
      std::ranges::stable_sort(group, std::ranges::greater{}, &ActivityEvent::date);
  }
  return groups;
}

}  // namespace tessivane
