#include "backend/BackendFileReader.h"

#include <algorithm>

namespace tessivane {

namespace {

std::uint64_t startOf(const FileStamp& stamp,
                      const std::optional<BackendFileCursor>& cursor,
                      BackendFileReader::InitialOffset initialOffset) {
  const auto size = static_cast<std::uint64_t>(stamp.size);
  if (!cursor)
    return std::min(initialOffset(stamp), size);
  return cursor->inode == stamp.inode && cursor->offset <= size ? cursor->offset : 0;
}

// Reads whole lines from `offset` on and returns how far it came.
std::uint64_t readLines(const RegularFile& file,
                        std::uint64_t offset,
                        BackendFileReader::Body body) {
  const auto size = static_cast<std::uint64_t>(file.stamp().size);
  std::string chunk;
  while (offset < size) {
    chunk.resize(std::min<std::uint64_t>(size - offset, BackendFileReader::maxChunk));
    const auto count = file.read(chunk.data(), chunk.size(), static_cast<std::int64_t>(offset));
    if (count.value_or(0) == 0)
      break;
    const std::string_view bytes(chunk.data(), *count);
    const auto last = bytes.rfind('\n');
    if (last != std::string_view::npos) {
      body(bytes.substr(0, last + 1));
      offset += last + 1;
    } else if (bytes.size() == BackendFileReader::maxChunk) {
      offset += bytes.size();
    } else {
      break;
    }
  }
  return offset;
}

}  // namespace

std::optional<BackendFileCursor> BackendFileReader::readAppended(
    const std::string& path,
    const std::optional<BackendFileCursor>& cursor,
    InitialOffset initialOffset,
    Body body) {
  const auto asCursor = [](const FileStamp& stamp, std::uint64_t offset) {
    return BackendFileCursor{
        .inode = stamp.inode,
        .offset = offset,
        .mtime = static_cast<double>(stamp.seconds) + static_cast<double>(stamp.nanoseconds) / 1e9};
  };
  // Most files have nothing new: they are not even opened.
  const auto stamp = fileStamp(path);
  if (!stamp)
    return std::nullopt;
  const auto start = startOf(*stamp, cursor, initialOffset);
  if (start >= static_cast<std::uint64_t>(stamp->size))
    return asCursor(*stamp, start);
  const auto file = RegularFile::open(path);
  if (!file)
    return std::nullopt;
  // It may be another file by now. What counts is the one that is open.
  return asCursor(file->stamp(),
                  readLines(*file, startOf(file->stamp(), cursor, initialOffset), body));
}

}  // namespace tessivane
