#include "ReadRecorder.h"

#include <sys/types.h>

#include <algorithm>
#include <filesystem>
#include <system_error>

namespace tessivane {

namespace {

ReadRanges* recorded = nullptr;

void record(int descriptor, ssize_t count, off_t offset) {
  if (recorded == nullptr || count <= 0)
    return;
  std::error_code failure;
  const auto path =
      std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), failure);
  if (!failure)
    (*recorded)[path.string()].push_back({offset, static_cast<std::size_t>(count)});
}

void merge(std::vector<ReadRange>& ranges) {
  std::sort(ranges.begin(), ranges.end(), [](const ReadRange& left, const ReadRange& right) {
    return left.offset < right.offset;
  });
  std::vector<ReadRange> merged;
  for (const ReadRange& range : ranges) {
    const auto end = range.offset + static_cast<std::int64_t>(range.length);
    if (merged.empty() ||
        range.offset > merged.back().offset + static_cast<std::int64_t>(merged.back().length)) {
      merged.push_back(range);
      continue;
    }
    ReadRange& last = merged.back();
    last.length = std::max(last.length, static_cast<std::size_t>(end - last.offset));
  }
  ranges = std::move(merged);
}

}  // namespace

ReadRanges recordReads(FunctionRef<void()> work) {
  ReadRanges ranges;
  recorded = &ranges;
  work();
  recorded = nullptr;
  for (auto& [path, list] : ranges)
    merge(list);
  return ranges;
}

std::size_t totalLength(const ReadRanges& ranges) {
  std::size_t total = 0;
  for (const auto& [path, list] : ranges) {
    for (const ReadRange& range : list)
      total += range.length;
  }
  return total;
}

}  // namespace tessivane

// NOLINTBEGIN(bugprone-reserved-identifier): the names that the linker's option lays down.
extern "C" {
ssize_t __real_pread(int descriptor, void* target, std::size_t length, off_t offset);
ssize_t __wrap_pread(int descriptor, void* target, std::size_t length, off_t offset);

ssize_t __wrap_pread(int descriptor, void* target, std::size_t length, off_t offset) {
  const ssize_t count = __real_pread(descriptor, target, length, offset);
  tessivane::record(descriptor, count, offset);
  return count;
}
}
// NOLINTEND(bugprone-reserved-identifier)
