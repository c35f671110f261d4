#pragma once

// The words that generated files are filled with. The same randomness gives the same bytes on every
// machine.

#include <cstddef>
#include <cstdint>
#include <string>

#include "helpers/Random.h"
#include "support/Date.h"

namespace tessivane {

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
