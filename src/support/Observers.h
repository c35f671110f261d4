#pragma once

// How observable state is observed. The owner of the state keeps an `Observers` (or an
// `Observable`, which adds the value itself) and notifies; whoever wants to be told keeps a
// `Subscription`.
//
// All of it belongs to one thread, the owner's: subscribing, notifying, and letting a subscription
// go. Within a call an observer may do anything to the subject: subscribe, end its own or another
// subscription, change the state again, even destroy the subject.

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace tessivane {

/// Keeps an observer subscribed for as long as it lives. It may outlive what is observed.
class [[nodiscard]] Subscription final {
 public:
  Subscription() = default;
  Subscription(Subscription&& other) noexcept = default;
  Subscription& operator=(Subscription&& other) noexcept {
    std::swap(active_, other.active_);
    other.end();
    return *this;
  }
  Subscription(const Subscription&) = delete;
  Subscription& operator=(const Subscription&) = delete;
  ~Subscription() { end(); }

  /// Ends the subscription now: the observer is not called again, and what it captured is released,
  /// at once or, from within its own call, when that call returns.
  void end() {
    if (const auto active = std::exchange(active_, nullptr))
      *active = false;
  }

 private:
  template <typename... Arguments>
  friend class Observers;
  explicit Subscription(std::shared_ptr<bool> active) : active_(std::move(active)) {}

  // Points into the observer's entry and keeps that alive; the list of observers does not.
  std::shared_ptr<bool> active_;
};

template <typename... Arguments>
class Observers final {
 public:
  using Closure = std::function<void(const Arguments&...)>;

  Observers() = default;
  Observers(const Observers&) = delete;
  Observers& operator=(const Observers&) = delete;
  ~Observers() = default;

  /// Adds an observer, to be called after those that are there. One that subscribes during a
  /// notification is told from the next one on. Logically const: it changes who listens, not what
  /// there is to hear, so that a reader of the state can subscribe.
  Subscription subscribe(Closure closure) const {
    auto entry = std::make_shared<Entry>(std::move(closure));
    entries_->push_back(entry);
    return Subscription(std::shared_ptr<bool>(entry, &entry->active));
  }

  /// Calls every observer in the order of subscription. One whose subscription ends meanwhile is
  /// left out. A notification from within an observer runs at once and whole; the outer one then
  /// goes on with its own, older arguments.
  void notify(const Arguments&... arguments) const {
    std::erase_if(*entries_, [](const std::weak_ptr<Entry>& entry) { return entry.expired(); });
    const std::vector<std::weak_ptr<Entry>> current = *entries_;
    const std::weak_ptr<const List> subject = entries_;
    for (const std::weak_ptr<Entry>& candidate : current) {
      const std::shared_ptr<Entry> entry = candidate.lock();
      if (entry != nullptr && entry->active)
        entry->closure(arguments...);
      // The arguments may have gone with the subject.
      if (subject.expired())
        return;
    }
  }

 private:
  struct Entry {
    explicit Entry(Closure observer) : closure(std::move(observer)) {}
    Closure closure;
    bool active = true;
  };
  using List = std::vector<std::weak_ptr<Entry>>;

  std::shared_ptr<List> entries_ = std::make_shared<List>();
};

/// When the observers of an `Observable` are told.
enum class Announcement { beforeChange, afterChange };

/// A value with its observers. They are given the new value; `value()` still has the old one when
/// the announcement comes before the change.
template <typename Value, Announcement announcement = Announcement::afterChange>
class Observable final {
 public:
  explicit Observable(Value value = {}) : value_(std::move(value)) {}
  Observable(const Observable&) = delete;
  Observable& operator=(const Observable&) = delete;
  ~Observable() = default;

  const Value& value() const { return value_; }

  /// Takes a new value and tells the observers; an equal one changes nothing and wakes nobody.
  /// Returns whether it changed.
  bool set(Value value) {
    if (value == value_)
      return false;
    if constexpr (announcement == Announcement::beforeChange) {
      observers_.notify(value);
      value_ = std::move(value);
    } else {
      value_ = std::move(value);
      observers_.notify(value_);
    }
    return true;
  }

  Subscription subscribe(std::function<void(const Value&)> closure) const {
    return observers_.subscribe(std::move(closure));
  }

 private:
  Value value_;
  Observers<Value> observers_;
};

}  // namespace tessivane
