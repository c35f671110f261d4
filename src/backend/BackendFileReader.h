#pragma once

// Reads what other programs append to their files, from where the last reading ended. Functions
// over paths, safe on every thread.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "backend/BackendEventStore.h"
#include "support/Files.h"
#include "support/FunctionRef.h"

namespace tessivane {

struct BackendFileReader {
  /// The largest piece that is read at once. A longer line is left out.
  static constexpr std::size_t maxChunk = 4 * 1024 * 1024;

  /// Where to begin in a file that has no cursor.
  using InitialOffset = FunctionRef<std::uint64_t(const FileStamp&)>;
  using Body = FunctionRef<void(std::string_view)>;

  /// Hands over the whole lines behind the cursor, up to the size that the file has now, by pieces,
  /// and returns how far it came. A line that is still being written waits for the next call. A
  /// file that was replaced or cut short is read from its start. Nothing when it cannot be read at
  /// all.
  static std::optional<BackendFileCursor> readAppended(
      const std::string& path,
      const std::optional<BackendFileCursor>& cursor,
      InitialOffset initialOffset,
      Body body);
};

}  // namespace tessivane
