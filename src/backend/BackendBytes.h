#pragma once

// Looks at raw bytes of transcripts before any JSON is parsed. Pure functions that allocate
// nothing, safe on every thread.

#include <cstddef>
#include <string_view>

namespace tessivane {

struct BackendBytes {
  static bool contains(std::string_view needle, std::string_view range);

  /// The line around `offset`, without its line feed.
  static std::string_view lineAround(std::string_view range, std::size_t offset);

  /// The last line that is not empty; empty when there is none.
  static std::string_view lastLine(std::string_view range);
};

}  // namespace tessivane
