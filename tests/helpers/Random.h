#pragma once

// Repeatable randomness. A plain value for one thread; the same seed gives the same numbers on
// every machine.

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

namespace tessivane {

class Random final {
 public:
  explicit Random(std::uint64_t seed) : engine_(seed) {}

  /// A number in [0, bound); 0 for a bound of 0.
  std::size_t below(std::size_t bound) {
    return bound == 0 ? 0 : static_cast<std::size_t>(engine_() % bound);
  }

  /// True in `percent` of a hundred cases.
  bool chance(std::size_t percent) { return below(100) < percent; }

  /// A size in [low, high], of which every doubling is equally likely: many small, few large.
  std::size_t size(std::size_t low, std::size_t high);

  /// The text form of a random UUID.
  std::string uuid();

  /// `digits` lower-case hexadecimal digits.
  std::string hex(std::size_t digits);

 private:
  std::mt19937_64 engine_;  // its numbers, unlike those of the distributions, are laid down
};

}  // namespace tessivane
