#include "activity/FlowModel.h"

#include <algorithm>
#include <array>
#include <chrono>
#include <cmath>
#include <string_view>
#include <unordered_map>

namespace tessivane {

namespace {

constexpr double largestScale = 1e6;  // points per count
constexpr double largestY = 1e9;      // points
// The smoothing spreads a commit over some two bins to each side; what is further off is hardly
// seen where it is asked for.
constexpr double activityReach = 2;

// A bell curve, standard deviation 1.7 bins: e to the power of -(i * i) / 5.78. Its sum is not 1,
// but the 4.26 that makes a lone commit rise to a height of 1.
constexpr std::array kernel = {0.013230116229822352,
                               0.0627770266591249,
                               0.2107477358184072,
                               0.5005531347669073,
                               0.8411288833576084,
                               1.0,
                               0.8411288833576084,
                               0.5005531347669073,
                               0.2107477358184072,
                               0.0627770266591249,
                               0.013230116229822352};
static_assert(kernel.size() == 2 * FlowModel::kernelReach + 1);

// No band is drawn for `started` and `branched`: they are beginnings, not work.
enum class Role { commit, pullRequest, attention, none };

Role roleOf(ActivityKind kind) {
  switch (kind) {
    case ActivityKind::commit:
      return Role::commit;
    case ActivityKind::prOpened:
    case ActivityKind::prMerged:
      return Role::pullRequest;
    case ActivityKind::needsYou:
    case ActivityKind::finished:
      return Role::attention;
    case ActivityKind::started:
    case ActivityKind::branched:
      return Role::none;
  }
  return Role::none;
}

// The river is one of commits: the others make it swell, but half as much.
double weightOf(Role role) {
  return role == Role::commit ? 1.0 : 0.5;
}

std::chrono::microseconds binWidthOf(ActivityRange range) {
  return std::chrono::duration_cast<std::chrono::microseconds>(span(range)) / FlowModel::windowBins;
}

std::int64_t dividedDown(std::int64_t value, std::int64_t by) {
  return value / by - (value % by < 0 ? 1 : 0);
}

std::int64_t binOf(Date date, std::chrono::microseconds width) {
  return dividedDown(date.time_since_epoch().count(), width.count());
}

// The place of each root. Events of one project often come together, and then nothing is hashed.
class ProjectPlaces final {
 public:
  explicit ProjectPlaces(const std::vector<std::string>& projects) {
    places_.reserve(projects.size());
    for (std::size_t place = 0; place < projects.size(); ++place)
      places_.emplace(projects[place], place);
  }

  std::optional<std::size_t> of(const std::string& root) {
    if (lastRoot_ == nullptr || root != *lastRoot_) {
      lastRoot_ = &root;
      const auto found = places_.find(root);
      last_ = found == places_.end() ? std::nullopt : std::optional(found->second);
    }
    return last_;
  }

 private:
  std::unordered_map<std::string_view, std::size_t> places_;
  const std::string* lastRoot_ = nullptr;
  std::optional<std::size_t> last_;
};

void sortByDate(std::vector<FlowEvent>& events) {
  if (!std::ranges::is_sorted(events, {}, &FlowEvent::date))
    std::ranges::stable_sort(events, {}, &FlowEvent::date);
}

void takeEvents(const FlowInput& input, FlowModel& model) {
  std::array<Role, allActivityKinds.size()> roles = {};
  roles.fill(Role::none);
  for (const ActivityKind kind : input.kinds)
    roles.at(static_cast<std::size_t>(kind)) = roleOf(kind);

  const auto width = binWidthOf(input.range);
  ProjectPlaces places(model.projects);
  for (const ActivityEvent& event : input.events) {
    const Role role = roles.at(static_cast<std::size_t>(event.kind));
    if (role == Role::none || event.date > input.now)
      continue;
    const auto place = places.of(event.projectRoot);
    if (!place)
      continue;
    auto& list = role == Role::commit        ? model.commits
                 : role == Role::pullRequest ? model.pullRequests
                                             : model.attention;
    list.push_back(FlowEvent{.date = event.date, .event = &event, .project = *place});
    const std::int64_t bin = binOf(event.date, width) - model.firstBin;
    if (bin >= 0 && bin < FlowModel::binCount)
      model.raw[*place][static_cast<std::size_t>(bin)] += weightOf(role);
  }
  sortByDate(model.commits);
  sortByDate(model.pullRequests);
  sortByDate(model.attention);
}

std::vector<double> smoothedBins(const std::vector<double>& raw) {
  const auto count = static_cast<std::int64_t>(raw.size());
  std::vector<double> result(raw.size(), FlowModel::floorHeight);
  // From each bin outward: most of them are empty.
  for (std::int64_t bin = 0; bin < count; ++bin) {
    const double value = raw[static_cast<std::size_t>(bin)];
    if (value == 0)
      continue;
    const std::int64_t first = std::max<std::int64_t>(bin - FlowModel::kernelReach, 0);
    const std::int64_t last = std::min(bin + FlowModel::kernelReach, count - 1);
    for (std::int64_t i = first; i <= last; ++i)
      result[static_cast<std::size_t>(i)] +=
          kernel.at(static_cast<std::size_t>(i - bin + FlowModel::kernelReach)) * value;
  }
  return result;
}

double clampedOrZero(double value, double low, double high) {
  return std::isnan(value) ? 0 : std::clamp(value, low, high);
}

}  // namespace

FlowModel FlowModel::make(FlowInput input) {
  FlowModel model;
  model.projects = std::move(input.projects);
  model.binWidth = binWidthOf(input.range);
  // The last bin is the first of the next chunk: until the end of this one, a band can be told
  // from the middles of two bins.
  model.firstBin = (chunk(input.end, input.range) + 1) * chunkBins - binCount + 1;
  model.raw.assign(model.projects.size(), std::vector<double>(binCount, 0));
  takeEvents(input, model);

  model.totals.assign(binCount, 0);
  for (const std::vector<double>& bins : model.raw) {
    model.smoothed.push_back(smoothedBins(bins));
    for (std::size_t bin = 0; bin < model.totals.size(); ++bin)
      model.totals[bin] += model.smoothed.back()[bin];
  }
  return model;
}

FlowModel::Key FlowModel::key(const FlowInput& input) {
  const auto firstLater =
      std::ranges::upper_bound(input.events, input.now, {}, &ActivityEvent::date);
  Key key{.events = input.events.data(),
          .eventCount = input.events.size(),
          .kinds = input.kinds,
          .range = input.range,
          .chunk = chunk(input.end, input.range),
          .upTo = static_cast<std::size_t>(firstLater - input.events.begin()),
          .projects = input.projects};
  if (!input.events.empty()) {
    key.firstID = input.events.front().id;
    key.lastID = input.events.back().id;
  }
  return key;
}

std::int64_t FlowModel::chunk(Date end, ActivityRange range) {
  return dividedDown(binOf(end, binWidthOf(range)), chunkBins);
}

std::size_t FlowModel::countUpTo(Date date, std::span<const FlowEvent> ascending) {
  return static_cast<std::size_t>(std::ranges::upper_bound(ascending, date, {}, &FlowEvent::date) -
                                  ascending.begin());
}

double FlowModel::peak(Date start, Date end) const {
  const double from = secondsSince1970(start);
  const double until = secondsSince1970(end);
  double highest = leastPeak;
  for (std::size_t bin = 0; bin < totals.size(); ++bin) {
    const double number = static_cast<double>(firstBin) + static_cast<double>(bin);
    const double middle = (number + 0.5) * binWidth.count();
    if (from < middle && middle < until)
      highest = std::max(highest, totals[bin]);
  }
  return highest;
}

FlowStack FlowModel::stack(double scale, double midY) const {
  const double points = clampedOrZero(scale, 0, largestScale);
  std::vector<double> edge(totals.size(), clampedOrZero(midY, -largestY, largestY));
  for (std::size_t bin = 0; bin < edge.size(); ++bin)
    edge[bin] -= 0.5 * totals[bin] * points;
  FlowStack result;
  for (const std::vector<double>& bins : smoothed) {
    result.top.push_back(edge);
    for (std::size_t bin = 0; bin < edge.size(); ++bin)
      edge[bin] += bins[bin] * points;
    result.bottom.push_back(edge);
  }
  return result;
}

FlowBand FlowModel::band(std::size_t project, Date date, const FlowStack& stack) const {
  if (project >= stack.top.size() || project >= stack.bottom.size())
    return {};
  const std::vector<double>& top = stack.top[project];
  const std::vector<double>& bottom = stack.bottom[project];
  const std::size_t bins = std::min(top.size(), bottom.size());
  if (bins < 2 || binWidth.count() <= 0)
    return {};
  const double position =
      secondsSince1970(date) / binWidth.count() - static_cast<double>(firstBin) - 0.5;
  const double left = std::clamp(std::floor(position), 0.0, static_cast<double>(bins - 2));
  const double fraction = std::clamp(position - left, 0.0, 1.0);
  const auto bin = static_cast<std::size_t>(left);
  return FlowBand{.top = std::lerp(top[bin], top[bin + 1], fraction),
                  .bottom = std::lerp(bottom[bin], bottom[bin + 1], fraction)};
}

// Commits only, as the river is theirs, counted from two bins before the date to two bins after
// it. Projects without any are left out; equally busy ones keep the order of the bands.
std::vector<FlowActivity> FlowModel::activity(Date around) const {
  const std::size_t first = countUpTo(shifted(around, -activityReach * binWidth), commits);
  const std::size_t last = countUpTo(shifted(around, activityReach * binWidth), commits);
  std::vector<std::size_t> counts(projects.size(), 0);
  for (std::size_t i = first; i < last; ++i)
    ++counts[commits[i].project];
  std::vector<FlowActivity> result;
  for (std::size_t place = 0; place < counts.size(); ++place) {
    if (counts[place] > 0)
      result.push_back(FlowActivity{.project = projects[place], .count = counts[place]});
  }
  std::ranges::stable_sort(result, std::ranges::greater{}, &FlowActivity::count);
  return result;
}

CommitCounts FlowModel::commitCountsWithValidity(Date start, Date end) const {
  const auto validityAt = [this](std::size_t count) {
    FlowValidity valid;
    if (count > 0)
      valid.from = commits[count - 1].date;
    if (count < commits.size())
      valid.until = commits[count].date;
    return valid;
  };
  const std::size_t first = countUpTo(start, commits);
  const std::size_t last = countUpTo(end, commits);
  CommitCounts result{.startValid = validityAt(first), .endValid = validityAt(last)};
  for (std::size_t i = first; i < last; ++i)
    ++result.counts[projects[commits[i].project]];
  return result;
}

}  // namespace tessivane
