#pragma once

// Looks at raw bytes of transcripts before any JSON is parsed. Pure functions, safe on every
// thread. They never allocate but for the text that `stringField` returns.

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace tessivane {

struct BackendBytes {
  static bool contains(std::string_view needle, std::string_view range);

  /// The bytes between the needle's first occurrence and the next double quote, ill-formed UTF-8
  /// repaired. Escapes are not known here: a text with an escaped quote ends at it. Nothing when
  /// the needle or the quote is missing.
  static std::optional<std::string> stringField(std::string_view needle, std::string_view range);

  /// The line around `offset`, without its line feed.
  static std::string_view lineAround(std::string_view range, std::size_t offset);

  /// The last line that is not empty; empty when there is none.
  static std::string_view lastLine(std::string_view range);
};

}  // namespace tessivane
