#include "backend/BackendFSWatcher.h"

#include <utility>

namespace tessivane {

BackendFSWatcher::BackendFSWatcher(const FileEvents& events,
                                   const std::vector<std::string>& paths,
                                   TaskQueue& queue,
                                   FileEvents::Handler handler)
    : stream_(events.watch(paths, latency, queue, std::move(handler))) {}

}  // namespace tessivane
