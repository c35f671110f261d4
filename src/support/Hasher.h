#pragma once

// Combines the hashes of a record's fields. A value, for the length of one hash.

#include <cstddef>
#include <functional>
#include <optional>

#include "support/Date.h"

namespace tessivane {

class Hasher final {
 public:
  template <typename T>
  Hasher& add(const T& value) {
    hash_ ^= std::hash<T>{}(value) + 0x9e3779b97f4a7c15ULL + (hash_ << 6) + (hash_ >> 2);
    return *this;
  }
  Hasher& add(Date date) { return add(date.time_since_epoch().count()); }
  Hasher& add(const std::optional<Date>& date) {
    if (!date)
      return add(false);
    return add(true).add(*date);
  }

  std::size_t value() const { return hash_; }

 private:
  std::size_t hash_ = 0;
};

}  // namespace tessivane
