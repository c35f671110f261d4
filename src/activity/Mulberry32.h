#pragma once

// Mulberry32, the published random number generator: 32 bits of state, the same draws on every
// machine. For invented data, never for secrets. A value, for one thread.

#include <cstddef>
#include <cstdint>

namespace tessivane {

class Mulberry32 final {
 public:
  explicit Mulberry32(std::uint32_t seed) : state_(seed) {}

  /// At least 0, below 1.
  double draw() {
    state_ += 0x6D2B79F5U;
    std::uint32_t t = (state_ | 1U) * ((state_ >> 15U) ^ state_);
    t = ((t | 61U) * ((t >> 7U) ^ t) + t) ^ t;
    return static_cast<double>((t >> 14U) ^ t) * 0x1p-32;
  }

  /// A place in a list of `count`; 0 for an empty one.
  std::size_t below(std::size_t count) {
    return static_cast<std::size_t>(draw() * static_cast<double>(count));
  }

 private:
  std::uint32_t state_;
};

}  // namespace tessivane
