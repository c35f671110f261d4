#include "platform/linux/FileWatch.h"

#include <sys/inotify.h>

#include <filesystem>
#include <utility>

#include "platform/linux/AsioLoop.h"
#include "platform/linux/Inotify.h"

namespace tessivane {

namespace {

// Not the opening of a file for reading: the settings read their file when it has changed. Nor each
// write to it: half a file says nothing.
constexpr std::uint32_t watched =
    IN_MOVED_TO | IN_MOVED_FROM | IN_CLOSE_WRITE | IN_DELETE | IN_ONLYDIR;

}  // namespace

struct FileWatch::Watcher {
  Watcher(const std::filesystem::path& path, std::function<void()> closure)
      : directory(path.parent_path().string()),
        name(path.filename().string()),
        changed(std::move(closure)) {
    wait();
  }

  void wait() {
    inotify.wait([this] {
      if (read())
        changed();
      wait();
    });
  }

  // Takes all events that are there. True when one is about the file; an overflow, or the end of
  // the watch, may be.
  bool read() {
    bool found = false;
    inotify.read([&](const Inotify::Event& event) {
      if ((event.mask & (IN_Q_OVERFLOW | IN_IGNORED)) != 0 || event.name == name)
        found = true;
    });
    return found;
  }

  const std::string directory;
  const std::string name;
  const std::function<void()> changed;
  AsioThread thread{"tessivane.watch"};
  Inotify inotify{thread.loop().context()};
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
  watcher_->inotify.add(watcher_->directory, watched);
}

}  // namespace tessivane
