#include "backend/BackendPass.h"

#include <utility>

#include "backend/BackendSessionEvent.h"

namespace tessivane {

namespace {

bool isBelow(const std::string& path, const std::string& directory) {
  return !directory.empty() && path.size() > directory.size() && path.starts_with(directory) &&
         path[directory.size()] == '/';
}

}  // namespace

Date BackendPass::firstSeen(Date date) const {
  return kind == BackendGitScan::Pass::live ? BackendSessionEvent::firstSeen(date, now)
                                            : distantPast;
}

void BackendPass::insert(const ActivityEvent& event) const {
  if (store.insert(event))
    outbox.add(event);
}

void BackendPass::addEdit(BackendEventStore::Edit edit) const {
  for (std::string& path : edit.paths)
    path = shownPath(path, edit.root, home);
  if (auto bucket = store.addEdit(edit))
    outbox.add(std::move(*bucket));
}

std::string shownPath(const std::string& path, const std::string& root, const std::string& home) {
  if (isBelow(path, root))
    return path.substr(root.size() + 1);
  if (isBelow(path, home))
    return "~" + path.substr(home.size());
  return path;
}

}  // namespace tessivane
