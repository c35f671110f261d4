#include "activity/LanesGrouping.h"

#include <algorithm>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <limits>
#include <string_view>
#include <unordered_map>
#include <utility>

namespace tessivane {

namespace {

const std::string projectPrefix = "project:";
constexpr double leastBucket = 0.001;   // seconds
constexpr double largestBucket = 1e13;  // all of time in two

// The date beside the pointer: sorting looks at little else.
struct Entry {
  Date date = distantPast;
  std::size_t place = 0;
  const ActivityEvent* event = nullptr;
};

bool standsBefore(const Entry& a, const Entry& b) {
  if (a.date != b.date)
    return a.date > b.date;
  const int ids = a.event->id.compare(b.event->id);
  return ids != 0 ? ids < 0 : a.place < b.place;
}

std::vector<Entry> newestFirst(std::span<const ActivityEvent* const> events) {
  std::vector<Entry> entries;
  entries.reserve(events.size());
  for (std::size_t place = events.size(); place-- > 0;)
    entries.push_back(Entry{.date = events[place]->date, .place = place, .event = events[place]});
  // They mostly come oldest first, and then only those of one date are left to sort.
  if (!std::ranges::is_sorted(entries, std::ranges::greater{}, &Entry::date)) {
    std::ranges::sort(entries, standsBefore);
    return entries;
  }
  for (auto run = entries.begin(); run != entries.end();) {
    const auto end = std::find_if(run + 1, entries.end(), [date = run->date](const Entry& entry) {
      return entry.date != date;
    });
    if (end - run > 1)
      std::sort(run, end, standsBefore);
    run = end;
  }
  return entries;
}

// A bucket is at least a millisecond, so that no date of 64 bits leads past them.
std::int64_t binOf(Date date, double bucket) {
  return static_cast<std::int64_t>(std::floor(secondsSince1970(date) / bucket));
}

// Before the year 1 a section starts at the distant past, after 9999 with its newest event.
Date startOf(std::int64_t bin, double bucket, Date newest) {
  return dateFromSeconds(bucket * static_cast<double>(bin))
      .value_or(bin < 0 ? distantPast : newest);
}

class SectionMaker final {
 public:
  explicit SectionMaker(double bucket) : bucket_(bucket) {}

  void add(const ActivityEvent& event) {
    const std::int64_t bin = binOf(event.date, bucket_);
    if (sections_.empty() || bin != bin_) {
      bin_ = bin;
      sections_.push_back(LanesSection{.id = "h" + std::to_string(bin),
                                       .start = startOf(bin, bucket_, event.date)});
    }
    if (event.kind != ActivityKind::commit || !joinsGroup(event))
      sections_.back().rows.push_back(LanesRow{.bin = bin, .content = &event});
  }

  std::vector<LanesSection> finished() { return std::move(sections_); }

 private:
  struct Group {
    std::size_t section = 0;
    std::size_t row = 0;
  };

  // Without a group in this section the commit is to open one, as the next row. One of an earlier
  // section is simply overwritten.
  bool joinsGroup(const ActivityEvent& event) {
    auto& rows = sections_.back().rows;
    Group& group = groups_[event.sessionID ? *event.sessionID : projectKey(event.projectRoot)];
    if (group.section != sections_.size()) {
      group = Group{.section = sections_.size(), .row = rows.size()};
      return false;
    }
    LanesRow& row = rows[group.row];
    if (const auto* first = std::get_if<const ActivityEvent*>(&row.content))
      row.content = LanesRow::Commits{*first, &event};
    else
      std::get<LanesRow::Commits>(row.content).push_back(&event);
    return true;
  }

  const std::string& projectKey(const std::string& root) {
    std::string& key = projectKeys_[root];
    if (key.empty())
      key = projectPrefix + root;
    return key;
  }

  double bucket_;
  std::int64_t bin_ = 0;
  // Keys are texts of the events, or of the second map. `section` counts from 1.
  std::unordered_map<std::string_view, Group> groups_;
  std::unordered_map<std::string_view, std::string> projectKeys_;
  std::vector<LanesSection> sections_;
};

// Unsigned, as the ends of time lie further apart than a signed number reaches.
std::uint64_t distance(Date a, Date b) {
  const auto [earlier, later] =
      std::minmax({a.time_since_epoch().count(), b.time_since_epoch().count()});
  return static_cast<std::uint64_t>(later) - static_cast<std::uint64_t>(earlier);
}

}  // namespace

std::string LanesRow::id() const {
  const ActivityEvent& first = *events().front();
  if (first.kind != ActivityKind::commit)
    return "e" + first.id;
  const std::string key = first.sessionID ? *first.sessionID : projectPrefix + first.projectRoot;
  return "g" + key + "-" + std::to_string(bin);
}

std::span<const ActivityEvent* const> LanesRow::events() const {
  if (const auto* commits = std::get_if<Commits>(&content))
    return *commits;
  return {std::get_if<const ActivityEvent*>(&content), 1};
}

std::vector<LanesSection> LanesGrouping::sections(std::span<const ActivityEvent* const> events,
                                                  Seconds bucket) {
  const double width = bucket.count();
  SectionMaker maker(width > leastBucket ? std::min(width, largestBucket) : leastBucket);
  for (const Entry& entry : newestFirst(events))
    maker.add(*entry.event);
  return maker.finished();
}

const LanesRow* LanesGrouping::nearestRow(std::span<const LanesRow* const> rows, Date date) {
  const LanesRow* nearest = nullptr;
  std::uint64_t least = std::numeric_limits<std::uint64_t>::max();
  for (const LanesRow* row : rows) {
    for (const ActivityEvent* event : row->events()) {
      const std::uint64_t away = distance(event->date, date);
      if (nearest == nullptr || away < least) {
        nearest = row;
        least = away;
      }
    }
  }
  return nearest;
}

}  // namespace tessivane
