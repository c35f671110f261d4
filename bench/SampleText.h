#pragma once

// Repeatable randomness, and the words that generated files are filled with. Plain values for one
// thread; the same seed gives the same bytes on every machine.

#include <cstddef>
#include <cstdint>
#include <random>
#include <string>

#include "support/Date.h"

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

/// Appends about `bytes` bytes of prose and code to `target`, as they stand inside a JSON string:
/// with escaped quotes, line feeds and tabs, and some letters outside ASCII.
void appendText(std::string& target, Random& random, std::size_t bytes);

/// The same as a value.
std::string sampleText(Random& random, std::size_t bytes);

/// About `bytes` bytes of base64, without a break.
void appendBase64(std::string& target, Random& random, std::size_t bytes);

/// Milliseconds since 1970.
std::int64_t milliseconds(Date date);

}  // namespace tessivane
