#pragma once

// Bounded, harmless looks at files that other programs own: nothing here writes, locks, maps, or
// opens anything but a regular file. Free functions and small values, safe on every thread.

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "support/Date.h"

namespace tessivane {

/// What one stat tells of a file's identity and state. Two equal stamps mean: the same file, not
/// written to in between.
struct FileStamp {
  std::uint64_t inode = 0;
  std::int64_t size = 0;
  std::int64_t seconds = 0;
  std::int64_t nanoseconds = 0;

  /// The modification time, rounded down to the microsecond.
  Date modificationDate() const;

  friend bool operator==(const FileStamp&, const FileStamp&) = default;
};

/// The stamp of the regular file at `path`, links followed. Directories, FIFOs, sockets, devices,
/// dangling or looping links and what cannot be looked at give nothing.
std::optional<FileStamp> fileStamp(const std::string& path);

/// The same of the directory at `path`, for which it means: no name in it has come or gone.
std::optional<FileStamp> directoryStamp(const std::string& path);

/// The modification date of the regular file at `path`; nothing as for `fileStamp`.
std::optional<Date> modificationDate(const std::string& path);

/// True when anything exists at `path`, of whatever kind, links followed.
bool fileExists(const std::string& path);

/// The names in a directory, without "." and "..", in the order in which the system lists them.
/// A directory that cannot be listed counts as empty.
std::vector<std::string> directoryEntries(const std::string& path);

struct NamedStamp {
  std::string name = {};
  FileStamp stamp = {};
};

/// The regular files in a directory whose names end in `suffix`, links followed, in the order of
/// the listing. A directory that cannot be listed counts as empty.
std::vector<NamedStamp> filesInDirectory(const std::string& path, std::string_view suffix);

/// The whole regular file at `path`; nothing if it is larger than `maxBytes` or cannot be read.
std::optional<std::string> readWholeFile(const std::string& path, std::size_t maxBytes);

/// A regular file open for reading. Movable; closes itself.
class RegularFile final {
 public:
  /// Nothing unless a regular file is there and may be read. Never blocks, whatever is there.
  static std::optional<RegularFile> open(const std::string& path);

  RegularFile(RegularFile&& other) noexcept;
  RegularFile& operator=(RegularFile&& other) noexcept;
  RegularFile(const RegularFile&) = delete;
  RegularFile& operator=(const RegularFile&) = delete;
  ~RegularFile();

  /// The stamp taken when the file was opened.
  const FileStamp& stamp() const { return stamp_; }

  /// Reads up to `length` bytes at `offset` into `target` and returns how many there were: fewer
  /// at the end of the file. A read error gives nothing.
  std::optional<std::size_t> read(char* target, std::size_t length, std::int64_t offset) const;

 private:
  RegularFile(int descriptor, FileStamp stamp) : descriptor_(descriptor), stamp_(stamp) {}

  int descriptor_ = -1;
  FileStamp stamp_;
};

}  // namespace tessivane
