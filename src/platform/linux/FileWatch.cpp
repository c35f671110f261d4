#include "platform/linux/FileWatch.h"

#include <sys/inotify.h>
#include <unistd.h>

#include <array>
#include <cstddef>
#include <cstring>
#include <filesystem>
#include <string_view>
#include <utility>

#include <asio/error_code.hpp>
#include <asio/posix/stream_descriptor.hpp>

#include "platform/linux/AsioLoop.h"

namespace tessivane {

namespace {

// Not the opening of a file for reading: the settings read their file when it has changed.
constexpr std::uint32_t watched =
    IN_MOVED_TO | IN_MOVED_FROM | IN_CLOSE_WRITE | IN_DELETE | IN_ONLYDIR;

// Whether one of the events in `bytes` is about the file of this name. An overflow, or the end of
// the watch, may be.
bool concern(std::string_view bytes, std::string_view name) {
  while (bytes.size() >= sizeof(inotify_event)) {
    inotify_event event{};
    std::memcpy(&event, bytes.data(), sizeof(event));
    bytes.remove_prefix(sizeof(event));
    // The kernel pads the name with NUL bytes.
    const std::string_view padded = bytes.substr(0, event.len);
    bytes.remove_prefix(padded.size());
    if ((event.mask & (IN_Q_OVERFLOW | IN_IGNORED)) != 0 ||
        padded.substr(0, padded.find('\0')) == name)
      return true;
  }
  return false;
}

}  // namespace

struct FileWatch::Watcher {
  Watcher(const std::filesystem::path& path, std::function<void()> closure)
      : directory(path.parent_path().string()),
        name(path.filename().string()),
        changed(std::move(closure)),
        descriptor(::inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
    if (descriptor < 0)
      return;
    events.assign(descriptor);
    wait();
  }

  void wait() {
    events.async_wait(asio::posix::descriptor_base::wait_read, [this](asio::error_code error) {
      if (error)
        return;
      if (read())
        changed();
      wait();
    });
  }

  // Takes all events that are there. True when one is about the file.
  bool read() const {
    bool found = false;
    std::array<char, 16 * 1024> buffer{};
    for (;;) {
      const ssize_t size = ::read(descriptor, buffer.data(), buffer.size());
      if (size <= 0)
        return found;
      if (concern(std::string_view(buffer.data(), static_cast<std::size_t>(size)), name))
        found = true;
    }
  }

  const std::string directory;
  const std::string name;
  const std::function<void()> changed;
  const int descriptor;
  AsioThread thread{"tessivane.watch"};
  // Closes the descriptor.
  asio::posix::stream_descriptor events{thread.loop().context()};
};

FileWatch::FileWatch(const std::string& path, std::function<void()> changed)
    : watcher_(std::make_unique<Watcher>(path, std::move(changed))) {
  renew();
}

FileWatch::~FileWatch() {
  watcher_->thread.stop();
}

void FileWatch::renew() {
  // Does nothing when it watches that very directory already.
  if (watcher_->descriptor >= 0)
    ::inotify_add_watch(watcher_->descriptor, watcher_->directory.c_str(), watched);
}

}  // namespace tessivane
