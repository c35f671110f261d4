#include "helpers/Random.h"

#include <cmath>

namespace tessivane {

std::size_t Random::size(std::size_t low, std::size_t high) {
  constexpr std::size_t steps = 10'000;
  const double part = static_cast<double>(below(steps)) / steps;
  const double ratio = static_cast<double>(high) / static_cast<double>(low);
  return static_cast<std::size_t>(static_cast<double>(low) * std::pow(ratio, part));
}

std::string Random::uuid() {
  std::string text = hex(32);
  text[12] = '4';
  for (const unsigned dash : {8U, 13U, 18U, 23U})
    text.insert(dash, 1, '-');
  return text;
}

std::string Random::hex(std::size_t digits) {
  std::string text;
  while (text.size() < digits)
    text += "0123456789abcdef"[below(16)];
  return text;
}

}  // namespace tessivane
