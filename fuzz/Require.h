#pragma once

// For checks on any bytes: a violated one says what it is and ends the program, which is what a
// fuzz program takes for a finding.

#include <cstdio>
#include <cstdlib>

namespace tessivane::fuzz {

inline void require(bool condition, const char* what) {
  if (condition)
    return;
  std::fprintf(stderr, "violated: %s\n", what);
  std::abort();
}

}  // namespace tessivane::fuzz
