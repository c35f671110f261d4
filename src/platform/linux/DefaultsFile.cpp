#include "platform/linux/DefaultsFile.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <string_view>
#include <system_error>
#include <utility>

#include "platform/linux/DefaultsJSON.h"
#include "support/Files.h"
#include "support/Paths.h"

namespace tessivane {

namespace {

// Enough for a lifetime of accidents, and an end to the search for a free name.
constexpr int maxAsideNames = 1000;

std::string lastError() {
  return std::generic_category().message(errno);
}

bool writeAll(int descriptor, std::string_view text) {
  while (!text.empty()) {
    const ssize_t written = ::write(descriptor, text.data(), text.size());
    if (written < 0 && errno == EINTR)
      continue;
    if (written < 0)
      return false;
    text.remove_prefix(static_cast<std::size_t>(written));
  }
  return true;
}

// Makes a new file with this text, on the disk when this returns. False with errno otherwise.
bool writeNewFile(const std::string& path, std::string_view text) {
  const int descriptor =
      ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
  if (descriptor < 0)
    return false;
  const bool written = writeAll(descriptor, text) && ::fsync(descriptor) == 0;
  const int error = errno;
  // Some file systems tell only now that there was no room.
  const bool closed = ::close(descriptor) == 0;
  if (!written)
    errno = error;
  return written && closed;
}

bool isWriteProtected(const std::string& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 && (status.st_mode & S_IWUSR) == 0;
}

}  // namespace

DefaultsFile::Lock::Lock(Lock&& other) noexcept
    : descriptor_(std::exchange(other.descriptor_, -1)) {}

DefaultsFile::Lock::~Lock() {
  if (descriptor_ >= 0)
    ::close(descriptor_);
}

void DefaultsFile::makeDirectory() const {
  makePrivateDirectory(std::filesystem::path(path_).parent_path());
}

DefaultsFile::Reading DefaultsFile::read() const {
  const std::optional<FileStamp> stamp = fileStamp(path_);
  if (!stamp) {
    struct stat status {};
    if (::lstat(path_.c_str(), &status) == 0)
      return {.state = State::broken};
    return {.state = errno == ENOENT || errno == ENOTDIR ? State::absent : State::unavailable};
  }
  const std::optional<std::string> text = readWholeFile(path_, maxBytes);
  if (!text) {
    const bool readable = stamp->size <= static_cast<std::int64_t>(maxBytes) &&
                          ::faccessat(AT_FDCWD, path_.c_str(), R_OK, AT_EACCESS) == 0;
    return {.state = readable ? State::unavailable : State::broken};
  }
  std::optional<DefaultsDictionary> values = defaultsFromJSON(*text);
  if (!values)
    return {.state = State::broken};
  return {.state = State::read, .values = *std::move(values)};
}

std::optional<DefaultsFile::Lock> DefaultsFile::lock(Failure& reason) const {
  // Beside the file, since the file itself is replaced. Never written to and never removed. Opened
  // for reading, so that the watch on the directory does not wake.
  const std::string path = path_ + ".lock";
  const int descriptor =
      ::open(path.c_str(), O_RDONLY | O_CREAT | O_CLOEXEC | O_NOFOLLOW, S_IRUSR | S_IWUSR);
  if (descriptor < 0) {
    reason = lastError();
    return std::nullopt;
  }
  Lock lock(descriptor);
  while (::flock(descriptor, LOCK_EX) != 0) {
    if (errno == EINTR)
      continue;
    reason = lastError();
    return std::nullopt;
  }
  return lock;
}

DefaultsFile::Failure DefaultsFile::write(const DefaultsDictionary& values) const {
  if (isWriteProtected(path_))
    return "the file is write-protected";
  // One name is enough under the lock; one that a crash has left is in nobody's use.
  const std::string temporary = path_ + ".tmp";
  ::unlink(temporary.c_str());
  if (writeNewFile(temporary, defaultsJSON(values)) &&
      ::rename(temporary.c_str(), path_.c_str()) == 0)
    return std::nullopt;
  Failure failure = lastError();
  ::unlink(temporary.c_str());
  return failure;
}

std::optional<std::string> DefaultsFile::setAside(Failure& reason) const {
  for (int number = 1; number <= maxAsideNames; ++number) {
    const std::string aside = path_ + ".unreadable-" + std::to_string(number);
    // Only under a free name, even if another program takes it this instant.
    if (::renameat2(AT_FDCWD, path_.c_str(), AT_FDCWD, aside.c_str(), RENAME_NOREPLACE) == 0)
      return aside;
    if (errno != EEXIST)
      break;
  }
  reason = lastError();
  return std::nullopt;
}

}  // namespace tessivane
