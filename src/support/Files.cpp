#include "support/Files.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <memory>
#include <utility>

#include "support/FunctionRef.h"

namespace tessivane {

namespace {

FileStamp stampOf(const struct stat& status) {
  return {.inode = status.st_ino,
          .size = status.st_size,
          .seconds = status.st_mtim.tv_sec,
          .nanoseconds = status.st_mtim.tv_nsec};
}

std::optional<FileStamp> stampOfRegularFile(const struct stat& status) {
  if (!S_ISREG(status.st_mode))
    return std::nullopt;
  return stampOf(status);
}

// Calls with the descriptor of the directory and each name but "." and "..".
void visitDirectory(const std::string& path, FunctionRef<void(int, const char*)> visit) {
  const std::unique_ptr<DIR, int (*)(DIR*)> directory(::opendir(path.c_str()), ::closedir);
  if (!directory)
    return;
  // NOLINTNEXTLINE(concurrency-mt-unsafe): safe, as each call here has a stream of its own
  while (const dirent* entry = ::readdir(directory.get())) {
    const char* name = static_cast<const char*>(entry->d_name);
    if (std::string_view(name) != "." && std::string_view(name) != "..")
      visit(::dirfd(directory.get()), name);
  }
}

}  // namespace

Date FileStamp::modificationDate() const {
  using namespace std::chrono;
  return Date{std::chrono::seconds{seconds}} +
         duration_cast<microseconds>(std::chrono::nanoseconds{nanoseconds});
}

std::optional<FileStamp> fileStamp(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0)
    return std::nullopt;
  return stampOfRegularFile(status);
}

std::optional<FileStamp> directoryStamp(const std::string& path) {
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0 || !S_ISDIR(status.st_mode))
    return std::nullopt;
  return stampOf(status);
}

std::optional<Date> modificationDate(const std::string& path) {
  const auto stamp = fileStamp(path);
  if (!stamp)
    return std::nullopt;
  return stamp->modificationDate();
}

bool fileExists(const std::string& path) {
  return ::access(path.c_str(), F_OK) == 0;
}

std::vector<std::string> directoryEntries(const std::string& path) {
  std::vector<std::string> names;
  visitDirectory(path, [&names](int /*directory*/, const char* name) { names.emplace_back(name); });
  return names;
}

std::vector<NamedStamp> filesInDirectory(const std::string& path, std::string_view suffix) {
  std::vector<NamedStamp> files;
  visitDirectory(path, [&](int directory, const char* name) {
    struct stat status {};
    // Relative to the open directory: the kernel does not walk the whole path for every file.
    if (!std::string_view(name).ends_with(suffix) || ::fstatat(directory, name, &status, 0) != 0)
      return;
    if (const auto stamp = stampOfRegularFile(status))
      files.push_back({.name = name, .stamp = *stamp});
  });
  return files;
}

std::optional<std::string> readWholeFile(const std::string& path, std::size_t maxBytes) {
  const auto file = RegularFile::open(path);
  if (!file || file->stamp().size < 0)
    return std::nullopt;
  const auto size = static_cast<std::size_t>(file->stamp().size);
  if (size > maxBytes)
    return std::nullopt;
  std::string text(size, '\0');
  const auto count = file->read(text.data(), size, 0);
  if (!count)
    return std::nullopt;
  text.resize(*count);
  return text;
}

std::optional<RegularFile> RegularFile::open(const std::string& path) {
  // Looked at first: the mere opening of a FIFO wakes up whoever waits at its other end.
  if (!fileStamp(path))
    return std::nullopt;
  // Non-blocking: a FIFO put in the file's place in between must not stop this program.
  const int descriptor = ::open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC | O_NOCTTY);
  if (descriptor < 0)
    return std::nullopt;
  struct stat status {};
  std::optional<FileStamp> stamp;
  if (::fstat(descriptor, &status) == 0)
    stamp = stampOfRegularFile(status);
  RegularFile file(descriptor, stamp.value_or(FileStamp{}));
  if (!stamp)
    return std::nullopt;
  return file;
}

RegularFile::RegularFile(RegularFile&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)), stamp_(other.stamp_) {}

RegularFile& RegularFile::operator=(RegularFile&& other) noexcept {
  std::swap(descriptor_, other.descriptor_);
  std::swap(stamp_, other.stamp_);
  return *this;
}

RegularFile::~RegularFile() {
  if (descriptor_ >= 0)
    ::close(descriptor_);
}

std::optional<std::size_t> RegularFile::read(char* target,
                                             std::size_t length,
                                             std::int64_t offset) const {
  std::size_t total = 0;
  while (total < length) {
    const ssize_t count = ::pread(
        descriptor_, target + total, length - total, offset + static_cast<std::int64_t>(total));
    if (count < 0 && errno == EINTR)
      continue;
    if (count < 0)
      return std::nullopt;
    if (count == 0)
      break;
    total += static_cast<std::size_t>(count);
  }
  return total;
}

}  // namespace tessivane
