#pragma once

// Reads what was appended to a file of lines since the last time, in chunks of whole lines. Nothing
// is kept between calls but the cursor that the caller stores; safe on every thread.
//
// The files belong to other programs and may grow, shrink, be replaced or go away at any time. One
// call sees the file as it was when it was opened: bytes appended meanwhile wait for the next call.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "backend/BackendEventStore.h"
#include "support/Date.h"
#include "support/Files.h"
#include "support/FunctionRef.h"

namespace tessivane {

using BackendFileStat = FileStamp;

class BackendFileReader final {
 public:
  /// The longest line that is handed over, its line feed included, and so the most that is held of
  /// a file at a time. The longest lines of real clients hold pictures and stay below it.
  static constexpr std::size_t maxLine = std::size_t{4} << 20;

  using InitialOffset = FunctionRef<std::uint64_t(const BackendFileStat&)>;
  using Body = FunctionRef<void(std::string_view lines)>;

  /// Nothing unless a regular file is there.
  static std::optional<BackendFileStat> fileStat(const std::string& path) {
    return fileStamp(path);
  }

  /// The modification time as cursors and signatures hold it, in seconds since 1970.
  static double mtime(const BackendFileStat& stat);

  /// Calls `body` with the lines from the cursor on, in order, in chunks that end in a line feed;
  /// each is good during the call. Returns how far the file is read now. A line without its line
  /// feed is left for a later call, one over `maxLine` is passed over.
  ///
  /// Begins at 0 when the cursor is that of another file or lies behind the end, and at
  /// `initialOffset` without a cursor. A start within a line passes over the rest of that line.
  /// Nothing, with no line handed over, when no regular file can be opened: the old cursor stays
  /// good. A read error ends the reading, and the result is what was reached.
  static std::optional<BackendFileCursor> readAppended(
      const std::string& path,
      const std::optional<BackendFileCursor>& cursor,
      InitialOffset initialOffset,
      Body body);

  /// The offset of the first line of a Codex rollout that is not older than `since`, the file's
  /// size when there is none, 0 when it cannot be opened. Lines begin with their date and come in
  /// its order (clients 0.120 to 0.169), so a few dozen small reads find it in any file. Where a
  /// line is over `maxLine` the result may lie before that line, or within one.
  static std::uint64_t timestampedOffset(const std::string& path, Date since);
};

}  // namespace tessivane
