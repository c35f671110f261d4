#pragma once

// One stored setting. A plain value, safe on every thread.

#include <concepts>
#include <map>
#include <string>
#include <string_view>
#include <type_traits>
#include <utility>
#include <variant>
#include <vector>

namespace tessivane {

class DefaultsValue;

/// Bytes that mean something to their owner only.
struct DefaultsData {
  std::string bytes = {};

  friend bool operator==(const DefaultsData&, const DefaultsData&) = default;
};

using DefaultsArray = std::vector<DefaultsValue>;
using DefaultsDictionary = std::map<std::string, DefaultsValue, std::less<>>;

/// A truth value, number, text (UTF-8), data, array or dictionary. Each is only itself: a number
/// that is 0 is no truth value, and a text of digits no number.
class DefaultsValue final {
 public:
  using Variant =
      std::variant<bool, double, std::string, DefaultsData, DefaultsArray, DefaultsDictionary>;

  // A value stands wherever a setting is asked for, hence the implicit constructors. They are
  // constrained because a pointer would otherwise turn into a truth value.
  // NOLINTBEGIN(google-explicit-constructor)
  template <std::same_as<bool> Boolean>
  DefaultsValue(Boolean value) : value_(value) {}
  template <typename Number>
  requires(std::is_arithmetic_v<Number> && !std::same_as<Number, bool>) DefaultsValue(Number value)
      : value_(static_cast<double>(value)) {}
  DefaultsValue(std::string value) : value_(std::move(value)) {}
  DefaultsValue(std::string_view value) : value_(std::string(value)) {}
  DefaultsValue(const char* value) : value_(std::string(value)) {}
  DefaultsValue(DefaultsData value) : value_(std::move(value)) {}
  DefaultsValue(DefaultsArray value) : value_(std::move(value)) {}
  DefaultsValue(DefaultsDictionary value) : value_(std::move(value)) {}
  // NOLINTEND(google-explicit-constructor)

  /// The value when it is of that kind, else null. `Kind` is one of the variant's types.
  template <typename Kind>
  const Kind* get() const {
    return std::get_if<Kind>(&value_);
  }

  const Variant& variant() const { return value_; }

  friend bool operator==(const DefaultsValue&, const DefaultsValue&) = default;

 private:
  Variant value_;
};

}  // namespace tessivane
