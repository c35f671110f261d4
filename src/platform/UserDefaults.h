#pragma once

// The program's settings: typed values under flat keys. An absent key, and one whose value is of
// another type than asked for, read alike: nothing, so that the caller's own default applies.
//
// Reading and writing are safe on every thread. Observers belong to the thread of the queue that
// the implementation was given: they subscribe there and are told there.

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "platform/DefaultsValue.h"
#include "support/Observers.h"

namespace tessivane {

class UserDefaults {
 public:
  UserDefaults() = default;
  UserDefaults(const UserDefaults&) = delete;
  UserDefaults& operator=(const UserDefaults&) = delete;
  virtual ~UserDefaults() = default;

  virtual std::optional<DefaultsValue> value(std::string_view key) const = 0;

  /// Stores the value. It reads back at once, and for the rest of this run even if it could not be
  /// saved.
  virtual void set(std::string_view key, DefaultsValue value) = 0;
  virtual void remove(std::string_view key) = 0;

  /// Calls `changed` after values have changed, here or in another process: as a task of the queue,
  /// one for any number of changes that have gathered. Storing an equal value is no change.
  virtual Subscription subscribe(std::function<void()> changed) = 0;

  std::optional<bool> boolean(std::string_view key) const { return get<bool>(key); }
  std::optional<double> number(std::string_view key) const { return get<double>(key); }
  std::optional<std::string> text(std::string_view key) const { return get<std::string>(key); }
  /// The bytes of a data value.
  std::optional<std::string> data(std::string_view key) const;
  std::optional<DefaultsArray> array(std::string_view key) const { return get<DefaultsArray>(key); }
  std::optional<DefaultsDictionary> dictionary(std::string_view key) const {
    return get<DefaultsDictionary>(key);
  }

 private:
  template <typename Kind>
  std::optional<Kind> get(std::string_view key) const {
    const std::optional<DefaultsValue> found = value(key);
    const Kind* typed = found ? found->get<Kind>() : nullptr;
    if (typed == nullptr)
      return std::nullopt;
    return *typed;
  }
};

}  // namespace tessivane
