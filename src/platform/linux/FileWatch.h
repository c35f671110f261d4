#pragma once

// Tells that a small file of the program's own was replaced, rewritten, created or removed, by
// whichever process. A thread of its own waits for the kernel's word (inotify on the directory,
// since the file itself is replaced at each change). Not meant for the files of other programs.

#include <functional>
#include <memory>
#include <string>

namespace tessivane {

class FileWatch final {
 public:
  /// `changed` is called on the watch's own thread; it may come for a change that the caller knows,
  /// and once for several. Without inotify, or without the directory, it is never called.
  FileWatch(const std::string& path, std::function<void()> changed);
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;
  /// Waits for a `changed` that runs; none comes afterwards.
  ~FileWatch();

  /// Watches the directory if it was not there before, or has gone and come back. Any thread.
  void renew();

 private:
  struct Watcher;
  std::unique_ptr<Watcher> watcher_;
};

}  // namespace tessivane
