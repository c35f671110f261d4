#pragma once

// File events by way of inotify. Each watch has a thread of its own, which sleeps until the kernel
// has something to tell: while nothing changes it costs nothing.

#include <functional>
#include <string>

#include "platform/FileEvents.h"

namespace tessivane {

/// The live file events. `problem` takes whole sentences, each once, that tell of changes which
/// cannot be noticed because the system's limits are reached; what could be watched stays watched.
/// It is called on any thread and must not release a handle.
///
/// The paths are absolute. What is changed after `watch` has returned is told; a directory that
/// comes into being is told with all that is in it. One that cannot be read, or whose file system
/// sends no events, tells nothing. Links lead to a root, as they do when it is found; below a root
/// they are not followed. More than `FileChanges::maxPaths` in one call become a rescan.
FileEvents inotifyEvents(std::function<void(const std::string& sentence)> problem);

}  // namespace tessivane
