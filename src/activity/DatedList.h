#pragma once

// Items in the order of their dates, each known by its id, for lists that grow at the end and age
// at the front. A value for one thread.
//
// An item at the end costs a push, one that is known a hash lookup, one that went from the front
// next to nothing. What comes late is put in order by `settle`, together with all else that came
// late since the last time, at the price of moving whatever stands behind it.
//
// Items of one date stand in the order in which their ids first came. So the list depends on what
// was put and removed and in which order, not on when it was settled.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "support/Date.h"

namespace tessivane {

/// `id` and `date` point to members of `Item`, fields or functions.
template <typename Item, auto id, auto date>
class DatedList final {
 public:
  /// In order. Valid until the next change. Only when settled.
  std::span<const Item> items() const { return std::span(items_).subspan(first_); }

  /// The item of that id, or null. Valid until the next change.
  const Item* find(const std::string& itemID) const {
    const auto found = places_.find(itemID);
    return found == places_.end() ? nullptr : &items_[found->second - dropped_];
  }

  /// The same, for whoever goes through many items in about the order of the list: looks first
  /// behind `previous`, the item found before or null. Only when settled.
  const Item* find(const std::string& itemID, const Item* previous) const {
    const bool hasNext = previous != nullptr && previous != &items_.back();
    return hasNext && std::invoke(id, previous[1]) == itemID ? previous + 1 : find(itemID);
  }

  /// Adds the item, or puts it in the place of the one with its id.
  void put(Item item) {
    const auto [place, isNew] =
        places_.try_emplace(std::invoke(id, item), dropped_ + items_.size());
    if (!isNew) {
      Item& known = items_[place->second - dropped_];
      if (std::invoke(date, known) != std::invoke(date, item))
        disturb(place->second - dropped_);
      known = std::move(item);
      return;
    }
    if (!items_.empty() && std::invoke(date, item) < std::invoke(date, items_.back()))
      disturb(items_.size());
    items_.push_back(std::move(item));
    arrivals_.push_back(nextArrival_++);
  }

  void remove(const std::string& itemID) {
    const auto found = places_.find(itemID);
    if (found == places_.end())
      return;
    const std::size_t index = found->second - dropped_;
    places_.erase(found);
    arrivals_[index] = removed;
    disturb(index);
  }

  /// Brings into order what was put and removed since the last time.
  void settle() {
    if (!disturbed_)
      return;
    std::vector<Rank> ranks = ranksBetween(*disturbed_, items_.size());
    const std::size_t from =
        ranks.empty() ? *disturbed_ : lowerBound(*std::min_element(ranks.begin(), ranks.end()));
    const std::vector<Rank> passed = ranksBetween(from, *disturbed_);
    ranks.insert(ranks.begin(), passed.begin(), passed.end());
    std::sort(ranks.begin(), ranks.end());
    rearrange(from, ranks);
    disturbed_.reset();
  }

  /// Lets go of the items dated before `cutoff`. Only when settled.
  void dropBefore(Date cutoff) {
    for (; first_ < items_.size() && std::invoke(date, items_[first_]) < cutoff; ++first_) {
      places_.erase(std::invoke(id, items_[first_]));
      items_[first_] = Item{};
    }
    // The room in front is reclaimed now and then, so that each item is moved once for it at most.
    if (first_ <= items_.size() / 2)
      return;
    items_.erase(items_.begin(), at(items_, first_));
    arrivals_.erase(arrivals_.begin(), at(arrivals_, first_));
    dropped_ += std::exchange(first_, 0);
  }

 private:
  /// What the order goes by, and where the item is now.
  struct Rank {
    Date when = {};
    std::uint64_t arrival = 0;
    std::size_t index = 0;

    friend bool operator<(const Rank& a, const Rank& b) {
      return a.when != b.when ? a.when < b.when : a.arrival < b.arrival;
    }
  };

  /// The arrival of an item that was removed but still stands in the list.
  static constexpr std::uint64_t removed = UINT64_MAX;

  template <typename Element>
  static auto at(std::vector<Element>& list, std::size_t index) {
    return list.begin() + static_cast<std::ptrdiff_t>(index);
  }

  Rank rank(std::size_t index) const {
    return {std::invoke(date, items_[index]), arrivals_[index], index};
  }

  std::vector<Rank> ranksBetween(std::size_t begin, std::size_t end) const {
    std::vector<Rank> ranks;
    ranks.reserve(end - begin);
    for (std::size_t i = begin; i < end; ++i) {
      if (arrivals_[i] != removed)
        ranks.push_back(rank(i));
    }
    return ranks;
  }

  /// Nothing from the first disturbed item on may be relied on; what stands before it is in order.
  void disturb(std::size_t index) { disturbed_ = std::min(disturbed_.value_or(index), index); }

  /// Where `lowest` belongs among the undisturbed items.
  std::size_t lowerBound(const Rank& lowest) const {
    std::size_t begin = first_;
    std::size_t end = *disturbed_;
    while (begin < end) {
      const std::size_t middle = begin + (end - begin) / 2;
      if (rank(middle) < lowest) {
        begin = middle + 1;
      } else {
        end = middle;
      }
    }
    return begin;
  }

  /// Makes `ranks` all that there is from `from` on.
  void rearrange(std::size_t from, const std::vector<Rank>& ranks) {
    std::vector<Item> moved;
    moved.reserve(ranks.size());
    for (const Rank& rank : ranks)
      moved.push_back(std::move(items_[rank.index]));
    std::ranges::move(moved, at(items_, from));
    items_.erase(at(items_, from + ranks.size()), items_.end());
    arrivals_.resize(items_.size());
    for (std::size_t i = 0; i < ranks.size(); ++i) {
      arrivals_[from + i] = ranks[i].arrival;
      places_[std::invoke(id, items_[from + i])] = dropped_ + from + i;
    }
  }

  // Those before `first_` are empty. `places_` counts from the beginning of time: the item of a
  // place stands at `place - dropped_`.
  std::vector<Item> items_;
  std::vector<std::uint64_t> arrivals_;  // of each item
  std::size_t first_ = 0;
  std::size_t dropped_ = 0;
  std::uint64_t nextArrival_ = 0;
  std::unordered_map<std::string, std::size_t> places_;
  std::optional<std::size_t> disturbed_;
};

}  // namespace tessivane
