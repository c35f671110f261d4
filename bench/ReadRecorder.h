#pragma once

// Learns which bytes of which files a piece of work reads, so that a bench can read just these with
// nothing around it. Works through the linker, which leads every call of pread in the program's own
// libraries (not in shared ones, so not SQLite's) through this file: --wrap=pread. One thread.

#include <cstddef>
#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "support/FunctionRef.h"

namespace tessivane {

struct ReadRange {
  std::int64_t offset = 0;
  std::size_t length = 0;
};

/// By path. The ranges are in order and don't touch each other: a byte read twice counts once.
using ReadRanges = std::map<std::string, std::vector<ReadRange>>;

ReadRanges recordReads(FunctionRef<void()> work);

std::size_t totalLength(const ReadRanges& ranges);

}  // namespace tessivane
