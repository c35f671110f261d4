#pragma once

// The numbers under the flow view: commits as a stacked river, one band a project, centred on a
// horizontal line, with pull requests and calls for attention pinned to it. Time is cut into bins;
// every bin has an absolute number, so that bands stay what they are while the window moves.
//
// A value for one thread, the owner's. It points into the events that it was made from: whoever
// keeps a model keeps its `Key` too, and makes a new model before using it once the key differs.

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <span>
#include <string>
#include <utility>
#include <vector>

#include "activity/ActivityEvent.h"
#include "support/Date.h"

namespace tessivane {

/// What a model is made from. Events may come in any order, dated anywhere.
struct FlowInput {
  std::span<const ActivityEvent> events = {};
  std::vector<std::string> projects = {};  ///< roots in band order; of two equal ones the first
  std::set<ActivityKind> kinds = {};
  ActivityRange range = ActivityRange::h1;
  Date end = distantPast;  ///< of the window
  Date now = distantPast;  ///< what is dated later stays out; in a replay, its position
};

/// An event of the model.
struct FlowEvent {
  Date date = distantPast;
  const ActivityEvent* event = nullptr;  ///< never null in a model
  std::size_t project = 0;               ///< place in the model's `projects`

  friend bool operator==(const FlowEvent&, const FlowEvent&) = default;
};

/// From `from` up to, but not including, `until`.
struct FlowValidity {
  Date from = Date::min();
  Date until = Date::max();

  bool contains(Date date) const { return from <= date && date < until; }
  friend bool operator==(const FlowValidity&, const FlowValidity&) = default;
};

/// Commits in a span of time, and how far its ends may move without changing that.
struct CommitCounts {
  std::map<std::string, std::size_t> counts = {};  ///< by project root; nobody has zero
  FlowValidity startValid = {};
  FlowValidity endValid = {};

  friend bool operator==(const CommitCounts&, const CommitCounts&) = default;
};

struct FlowBand {
  double top = 0;
  double bottom = 0;

  friend bool operator==(const FlowBand&, const FlowBand&) = default;
};

/// The bands in points, y downward; per project, per bin.
struct FlowStack {
  std::vector<std::vector<double>> top = {};
  std::vector<std::vector<double>> bottom = {};
};

struct FlowActivity {
  std::string project = {};
  std::size_t count = 0;

  friend bool operator==(const FlowActivity&, const FlowActivity&) = default;
};

struct FlowModel {
  static constexpr std::int64_t windowBins = 90;
  static constexpr std::int64_t chunkBins = 12;
  /// The window, a chunk of run-ahead, and room for the smoothing on the left.
  static constexpr std::int64_t binCount = 117;
  static constexpr std::int64_t kernelReach = 5;
  static constexpr double floorHeight = 0.08;
  static constexpr double leastPeak = 2.5;

  /// What a model was made from. Equal keys: the model stands. It holds where the events lie, so
  /// that a model is not used after they have moved.
  struct Key {
    const ActivityEvent* events = nullptr;
    std::size_t eventCount = 0;
    std::optional<std::string> firstID = {};
    std::optional<std::string> lastID = {};
    std::int64_t revision = 0;  ///< the feed's
    std::size_t editCount = 0;
    std::set<std::string> projectFilter = {};
    std::set<ActivityKind> kinds = {};
    ActivityRange range = ActivityRange::h1;
    std::int64_t chunk = 0;
    std::size_t upTo = 0;  ///< how many events the model's `now` lets in
    std::vector<std::string> projects = {};

    friend bool operator==(const Key&, const Key&) = default;
  };

  std::vector<std::string> projects = {};
  Seconds binWidth{0};
  std::int64_t firstBin = 0;  ///< a bin's number: seconds since 1970 by `binWidth`, rounded down
  std::vector<std::vector<double>> raw = {};       ///< per project, per bin
  std::vector<std::vector<double>> smoothed = {};  ///< the same
  std::vector<double> totals = {};                 ///< of `smoothed`, per bin
  // Ascending by date, those of one date as they were given. Not only of the bins.
  std::vector<FlowEvent> commits = {};
  std::vector<FlowEvent> pullRequests = {};
  std::vector<FlowEvent> attention = {};  ///< `needsYou` and `finished`

  static FlowModel make(FlowInput input);

  /// The key of the model that `make` would give, but for the filter, the revision and the number
  /// of edits, which the feed knows. The events are those of the feed, ascending by date.
  static Key key(const FlowInput& input);

  /// The coarse step of time in which `end` lies: twelve bins.
  static std::int64_t chunk(Date end, ActivityRange range);

  /// How many of the events are dated at or before `date`.
  static std::size_t countUpTo(Date date, std::span<const FlowEvent> ascending);

  /// The largest total of the bins whose middle lies between the two, and never less than 2.5, so
  /// that an almost idle window keeps a readable scale.
  double peak(Date start, Date end) const;

  /// Every bin's bands, one below the other, centred on `midY`. `scale` is points per count; what
  /// no window could need (not a number, negative, beyond a million) is cut to 0 or a million.
  FlowStack stack(double scale, double midY) const;

  /// A project's band at a date, between the middles of two bins; past the ends as in the outermost
  /// pair. Zeros for a place without a project and with fewer than two bins.
  FlowBand band(std::size_t project, Date date, const FlowStack& stack) const;

  /// Who committed around that time, the busiest first.
  std::vector<FlowActivity> activity(Date around) const;

  /// The commits after `start`, up to and including `end`.
  CommitCounts commitCountsWithValidity(Date start, Date end) const;
};

}  // namespace tessivane
