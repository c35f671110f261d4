#include "platform/linux/InotifyTree.h"

#include <sys/inotify.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <iterator>
#include <system_error>
#include <utility>

#include "support/Paths.h"

namespace tessivane {

namespace {

// Of a directory on the way to a root: that it is somewhere else now. Its end is told unasked.
constexpr std::uint32_t onTheWay = IN_ONLYDIR | IN_MOVE_SELF;

// Of the last directory above a root: what comes and goes in it too, the root perhaps.
constexpr std::uint32_t atTheDoor = onTheWay | IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO;

// Of a directory inside: each write too, since those who write may keep a file open for hours. A
// file's owner, mode and times (IN_ATTRIB) say nothing about what is in it, and closing (IN_CLOSE)
// nothing that writing did not say before. Reading is nobody's business, this program's least of
// all. A file that was deleted, and is open somewhere, is of no interest either.
constexpr std::uint32_t inside =
    IN_ONLYDIR | IN_EXCL_UNLINK | IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_MODIFY;

const std::string& pathOf(const std::string& path) {
  return path;
}
const std::string& pathOf(const auto& entry) {
  return entry.first;
}

// The paths in an ordered set or map which are this one or below it.
std::vector<std::string> pathsAt(const auto& paths, const std::string& path) {
  std::vector<std::string> found;
  if (paths.contains(path))
    found.push_back(path);
  const std::string below = joinedPath(path, "");
  for (auto at = paths.upper_bound(below); at != paths.end() && pathOf(*at).starts_with(below);
       ++at)
    found.push_back(pathOf(*at));
  return found;
}

// Nothing in a directory that cannot be listed.
void forEachEntry(const std::string& directory,
                  FunctionRef<void(const std::filesystem::directory_entry&)> take) {
  std::error_code error;
  std::filesystem::directory_iterator entry(directory, error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error))
    take(*entry);
}

}  // namespace

void FileChanges::add(std::string path) {
  if (rescan)
    return;
  paths.insert(std::move(path));
  if (paths.size() > maxPaths)
    addEverything();
}

void FileChanges::add(FileChanges&& later) {
  if (later.rescan)
    addEverything();
  while (!rescan && !later.paths.empty())
    add(std::move(later.paths.extract(later.paths.begin()).value()));
}

void FileChanges::addEverything() {
  rescan = true;
  paths.clear();
}

InotifyTree::InotifyTree(asio::io_context& context,
                         const std::vector<std::string>& roots,
                         Refused refused)
    : roots_(roots.begin(), roots.end()), refused_(std::move(refused)), inotify_(context) {
  watchEverything();
}

FileChanges InotifyTree::take() {
  FileChanges changes;
  bool areLost = false;
  inotify_.read([&](const Inotify::Event& event) {
    areLost = areLost || (event.mask & IN_Q_OVERFLOW) != 0;
    if (!areLost)
      handle(event, changes);
  });
  if (areLost) {
    // Among the lost may be what tells of directories. Removing each watch would make an event of
    // its own: a new beginning is cheaper.
    inotify_.reopen();
    watchEverything();
    changes.addEverything();
  }
  while (!astray_.empty())
    watchRoot(astray_.extract(astray_.begin()).value(), &changes);
  return changes;
}

void InotifyTree::watchEverything() {
  places_.clear();
  paths_.clear();
  astray_.clear();
  for (const std::string& root : roots_)
    watchRoot(root, nullptr);
}

// From the top down, each directory before a look at what is in it: nothing slips through between.
void InotifyTree::watchRoot(const std::string& root, FileChanges* changes) {
  std::string above = "/";
  for (std::size_t slash = root.find('/', 1); slash != std::string::npos;
       slash = root.find('/', slash + 1)) {
    const std::string next = root.substr(0, slash);
    if (watch(next, onTheWay) == Step::absent) {
      watch(above, atTheDoor);
      if (watch(next, onTheWay) == Step::absent)
        return;
    }
    above = next;
  }
  watch(above, atTheDoor);
  watchBelow(root, 0, changes);
}

// Watches a directory with those below it. With `changes` all that is there is told as new.
void InotifyTree::watchBelow(const std::string& top, std::uint32_t flags, FileChanges* changes) {
  std::vector<std::string> open;
  const auto enter = [&](const std::string& path, std::uint32_t mask) {
    if (watch(path, mask) != Step::watched)
      return;
    // Listed once, by whoever comes first.
    if (std::exchange(places_.at(path).isInside, true))
      return;
    open.push_back(path);
  };
  enter(top, inside | flags);
  if (!open.empty() && changes != nullptr)
    changes->add(top);
  while (!open.empty()) {
    const std::string directory = std::move(open.back());
    open.pop_back();
    forEachEntry(directory, [&](const std::filesystem::directory_entry& entry) {
      const std::string& path = entry.path().native();
      if (changes != nullptr)
        changes->add(path);
      std::error_code ignored;
      if (!entry.is_symlink(ignored) && entry.is_directory(ignored))
        enter(path, inside | IN_DONT_FOLLOW);
    });
  }
}

InotifyTree::Step InotifyTree::watch(const std::string& path, std::uint32_t mask) {
  const int watch = inotify_.add(path, mask);
  if (watch < 0) {
    if (errno == ENOENT || errno == ENOTDIR || errno == ELOOP)
      return Step::absent;
    if (errno == ENOSPC || errno == ENOMEM)
      refused_(errno);
    return Step::refused;
  }
  if (const auto before = places_.find(path); before != places_.end()) {
    if (before->second.watch == watch)
      return Step::watched;
    // Another directory has taken its place; the events that say so are still to come.
    loseSight(path);
  }
  places_.emplace(path, Place{.watch = watch});
  paths_[watch].push_back(path);
  return Step::watched;
}

void InotifyTree::handle(const Inotify::Event& event, FileChanges& changes) {
  const auto found = paths_.find(event.watch);
  if (found == paths_.end())
    return;
  // A copy, as what follows may change it.
  const std::vector<std::string> paths = found->second;
  for (const std::string& path : paths) {
    const auto place = places_.find(path);
    if (place == places_.end() || place->second.watch != event.watch)
      continue;
    if ((event.mask & (IN_IGNORED | IN_MOVE_SELF)) != 0)
      leave(path, changes);
    else if (!event.name.empty())
      handleEntry(joinedPath(path, event.name), place->second.isInside, event.mask, changes);
  }
}

void InotifyTree::handleEntry(const std::string& path,
                              bool isInside,
                              std::uint32_t mask,
                              FileChanges& changes) {
  if (isInside)
    changes.add(path);
  if ((mask & (IN_DELETE | IN_MOVED_FROM)) != 0)
    leave(path, changes);
  if ((mask & (IN_CREATE | IN_MOVED_TO)) == 0)
    return;
  if (isInside && (mask & IN_ISDIR) != 0)
    watchBelow(path, IN_DONT_FOLLOW, &changes);
  lookForRoots(path);
}

// What is told to have gone from this path.
void InotifyTree::leave(const std::string& path, FileChanges& changes) {
  for (const std::string& root : pathsAt(roots_, path)) {
    const auto place = places_.find(root);
    if (place != places_.end() && place->second.isInside)
      changes.add(root);
  }
  loseSight(path);
}

void InotifyTree::loseSight(const std::string& path) {
  for (const std::string& lost : pathsAt(places_, path)) {
    const int watch = places_.extract(lost).mapped().watch;
    std::vector<std::string>& paths = paths_[watch];
    std::erase(paths, lost);
    if (!paths.empty())
      continue;
    paths_.erase(watch);
    inotify_.remove(watch);
  }
  lookForRoots(path);
}

void InotifyTree::lookForRoots(const std::string& path) {
  for (std::string& root : pathsAt(roots_, path))
    astray_.insert(std::move(root));
}

}  // namespace tessivane
