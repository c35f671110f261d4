#pragma once

// Which directories are watched for a set of roots, and what the kernel's events say about them. It
// knows neither threads nor delays: one thread at a time. For the sources of this folder only.
//
// A root is watched with all directories below it. Links are followed on the way to a root, not
// below. The last directory above a root tells when the root comes, goes or is replaced, and those
// further up when they are moved or removed, so that a root is found again wherever its path leads.

#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <set>
#include <string>
#include <unordered_map>
#include <vector>

#include <asio/io_context.hpp>

#include "platform/linux/Inotify.h"

namespace tessivane {

/// What has changed, with a bound: beyond it only the fact that much has.
struct FileChanges {
  static constexpr std::size_t maxPaths = 20'000;

  std::set<std::string> paths = {};
  bool rescan = false;

  bool isEmpty() const { return paths.empty() && !rescan; }
  void add(std::string path);
  void add(FileChanges&& later);
  void addEverything();
};

class InotifyTree final {
 public:
  /// Takes the error number when a watch is refused for want of room or memory.
  using Refused = std::function<void(int error)>;

  /// Watches what is there, before it returns. The context must outlive it.
  InotifyTree(asio::io_context& context, const std::vector<std::string>& roots, Refused refused);

  /// Of the events. Nothing is watched while there is an error.
  Inotify& inotify() { return inotify_; }

  /// Takes the events that are there and follows what they tell of directories.
  FileChanges take();

 private:
  // A directory that is watched, under one of its paths.
  struct Place {
    int watch = -1;
    // Below a root, or a root. The others are on the way to one.
    bool isInside = false;
  };
  enum class Step { watched, absent, refused };

  void watchEverything();
  void watchRoot(const std::string& root, FileChanges* changes);
  void watchBelow(const std::string& top, std::uint32_t flags, FileChanges* changes);
  Step watch(const std::string& path, std::uint32_t mask);
  void handle(const Inotify::Event& event, FileChanges& changes);
  void handleEntry(const std::string& path,
                   bool isInside,
                   std::uint32_t mask,
                   FileChanges& changes);
  void leave(const std::string& path, FileChanges& changes);
  void loseSight(const std::string& path);
  void lookForRoots(const std::string& path);

  const std::set<std::string> roots_;
  const Refused refused_;
  Inotify inotify_;
  std::map<std::string, Place> places_;
  // The paths of each watch: more than one where links or mounts lead to the same directory.
  std::unordered_map<int, std::vector<std::string>> paths_;
  // Roots to be looked for once the events at hand are understood.
  std::set<std::string> astray_;
};

}  // namespace tessivane
