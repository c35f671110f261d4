#include "backend/BackendFileReader.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <memory>
#include <utility>

namespace tessivane {

namespace {

// What one read asks for: small enough that the bytes are still near the processor when the
// scanner looks at them.
constexpr std::size_t readSize = std::size_t{512} << 10;

constexpr std::size_t pageSize = 4096;

constexpr std::size_t searchBlock = std::size_t{16} << 10;
constexpr std::size_t timestampWindow = 64;
constexpr std::string_view timestampPrefix = "{\"timestamp\":\"";

std::uint64_t sizeOf(const BackendFileStat& stat) {
  return static_cast<std::uint64_t>(std::max<std::int64_t>(stat.size, 0));
}

std::uint64_t startOffset(const BackendFileStat& stat,
                          const std::optional<BackendFileCursor>& cursor,
                          BackendFileReader::InitialOffset initialOffset) {
  if (!cursor)
    return std::min(initialOffset(stat), sizeOf(stat));
  return cursor->inode == stat.inode && cursor->offset <= sizeOf(stat) ? cursor->offset : 0;
}

std::size_t readAt(const RegularFile& file, char* target, std::size_t length, std::uint64_t from) {
  return file.read(target, length, static_cast<std::int64_t>(from)).value_or(0);
}

// The lines of [offset, end) of one open file. The buffer holds what was read and not handed over:
// the beginning of a line. Its memory is touched only as far as a line is long. Every byte lies as
// far into a page as it does in the file: at some other distances (one byte, for example) the
// system's copying was measured at a third of its speed.
class AppendedLines final {
 public:
  AppendedLines(const RegularFile& file, std::uint64_t offset, std::uint64_t end)
      : file_(file),
        offset_(offset),
        end_(end),
        room_(static_cast<std::size_t>(
            std::min<std::uint64_t>(end - offset, BackendFileReader::maxLine))),
        memory_(std::make_unique_for_overwrite<char[]>(room_ + 2 * pageSize)),
        page_(memory_.get() + pageSize -
              reinterpret_cast<std::uintptr_t>(memory_.get()) % pageSize),
        bytes_(page_ + offset % pageSize),
        skipping_(beginsWithinLine()) {}

  // Returns the offset behind the last line that is done with.
  std::uint64_t handTo(BackendFileReader::Body body) {
    while (offset_ + held_ < end_) {
      const std::uint64_t from = offset_ + held_;
      const auto wanted =
          std::min<std::uint64_t>({end_ - from, room_ - held_, readSize - from % pageSize});
      const auto got = readAt(file_, bytes_ + held_, static_cast<std::size_t>(wanted), from);
      if (got == 0)
        break;
      const std::size_t searched = std::exchange(held_, held_ + got);
      handOver(skipping_ ? skip() : searched, body);
    }
    return offset_;
  }

 private:
  bool beginsWithinLine() const {
    char before = '\n';
    return offset_ > 0 && readAt(file_, &before, 1, offset_ - 1) == 1 && before != '\n';
  }

  // Passes over the rest of a line and returns how many of the bytes now held need no search. When
  // the line has no end yet, a later call goes on with it, as the byte before the offset tells.
  std::size_t skip() {
    const void* feed = std::memchr(bytes_, '\n', held_);
    skipping_ = feed == nullptr;
    drop(skipping_ ? held_ : lengthTo(feed));
    return 0;
  }

  void handOver(std::size_t searched, BackendFileReader::Body body) {
    const void* feed = ::memrchr(bytes_ + searched, '\n', held_ - searched);
    if (feed != nullptr) {
      body({bytes_, lengthTo(feed)});
      drop(lengthTo(feed));
    } else if (held_ == BackendFileReader::maxLine) {
      skipping_ = true;
      drop(held_);
    }
  }

  std::size_t lengthTo(const void* feed) const {
    return static_cast<std::size_t>(static_cast<const char*>(feed) - bytes_) + 1;
  }

  void drop(std::size_t count) {
    offset_ += count;
    held_ -= count;
    char* const to = page_ + offset_ % pageSize;
    std::memmove(to, bytes_ + count, held_);
    bytes_ = to;
  }

  const RegularFile& file_;
  std::uint64_t offset_;  // of the first held byte in the file
  std::uint64_t end_;
  std::size_t room_;
  std::unique_ptr<char[]> memory_;
  char* page_;   // the first page in it
  char* bytes_;  // those that are held
  std::size_t held_ = 0;
  bool skipping_;
};

// The binary search over the bytes of one open rollout.
class TimestampSearch final {
 public:
  TimestampSearch(const RegularFile& file, Date since)
      : file_(file), since_(since), size_(sizeOf(file.stamp())) {}

  std::uint64_t run() const {
    std::uint64_t low = 0;
    std::uint64_t high = size_;
    // The first line start at or after `high`, as far as it is known, is not older than `since_`:
    // so whoever looks for one from before `high` need not look further than there.
    while (low < high) {
      const std::uint64_t middle = low + (high - low) / 2;
      const auto start = lineStart(middle, high);
      const auto date = start ? lineTimestamp(*start) : std::nullopt;
      if (date && *date < since_)
        low = *start + 1;
      else
        high = middle;
    }
    // Within a line that is too long to be looked through, whoever reads on passes over its rest.
    return lineStart(low, size_).value_or(size_ - low > BackendFileReader::maxLine ? low : size_);
  }

 private:
  // The first start of a line in [offset, end), looked for no further than a line may be long.
  std::optional<std::uint64_t> lineStart(std::uint64_t offset, std::uint64_t end) const {
    if (offset == 0)
      return 0;
    std::array<char, searchBlock> block;  // NOLINT(cppcoreguidelines-pro-type-member-init)
    const std::uint64_t limit = std::min(end - 1, offset + BackendFileReader::maxLine);
    for (std::uint64_t at = offset - 1; at < limit;) {
      const auto got =
          readAt(file_,
                 block.data(),
                 static_cast<std::size_t>(std::min<std::uint64_t>(limit - at, block.size())),
                 at);
      if (got == 0)
        return std::nullopt;
      if (const void* feed = std::memchr(block.data(), '\n', got); feed != nullptr)
        return at + static_cast<std::uint64_t>(static_cast<const char*>(feed) - block.data()) + 1;
      at += got;
    }
    return std::nullopt;
  }

  std::optional<Date> lineTimestamp(std::uint64_t offset) const {
    std::array<char, timestampWindow> window;  // NOLINT(cppcoreguidelines-pro-type-member-init)
    std::string_view text(window.data(), readAt(file_, window.data(), window.size(), offset));
    if (!text.starts_with(timestampPrefix))
      return std::nullopt;
    text.remove_prefix(timestampPrefix.size());
    const auto quote = text.find('"');
    return quote == std::string_view::npos ? std::nullopt : isoDate(text.substr(0, quote));
  }

  const RegularFile& file_;
  Date since_;
  std::uint64_t size_;
};

}  // namespace

double BackendFileReader::mtime(const BackendFileStat& stat) {
  return static_cast<double>(stat.seconds) + static_cast<double>(stat.nanoseconds) / 1'000'000'000;
}

std::optional<BackendFileCursor> BackendFileReader::readAppended(
    const std::string& path,
    const std::optional<BackendFileCursor>& cursor,
    InitialOffset initialOffset,
    Body body) {
  auto stat = fileStat(path);
  if (!stat)
    return std::nullopt;
  std::uint64_t offset = startOffset(*stat, cursor, initialOffset);
  if (offset < sizeOf(*stat)) {
    const auto file = RegularFile::open(path);
    if (!file)
      return std::nullopt;
    // What was opened counts: it may be another file by now, or a shorter one.
    const auto before = std::exchange(stat, file->stamp());
    if (before->inode != stat->inode || offset > sizeOf(*stat))
      offset = startOffset(*stat, cursor, initialOffset);
    if (offset < sizeOf(*stat))
      offset = AppendedLines(*file, offset, sizeOf(*stat)).handTo(body);
  }
  return BackendFileCursor{.inode = stat->inode, .offset = offset, .mtime = mtime(*stat)};
}

std::uint64_t BackendFileReader::timestampedOffset(const std::string& path, Date since) {
  const auto file = RegularFile::open(path);
  return file ? TimestampSearch(*file, since).run() : 0;
}

}  // namespace tessivane
