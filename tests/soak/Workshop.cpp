#include "soak/Workshop.h"

#include "support/Files.h"

namespace tessivane {

namespace {

constexpr std::chrono::milliseconds betweenLooks{200};

}  // namespace

void Witness::look() {
  const auto now = std::chrono::steady_clock::now();
  if (now < nextLook_)
    return;
  nextLook_ = now + betweenLooks;
  auto stored = StoredActivity::read(database_);
  if (!stored)
    return;
  cursors_ = std::move(stored->cursors);
  seen_ = std::move(stored->seen);
  for (const StoredEvent& event : stored->events)
    seen_.insert(event.token());
}

bool Witness::sees(const Token& token) {
  if (!seen_.contains(token))
    look();
  return seen_.contains(token);
}

std::optional<std::uint64_t> Witness::offset(const std::string& path) {
  look();
  const auto stamp = fileStamp(path);
  const auto cursor = cursors_.find(path);
  if (!stamp || cursor == cursors_.end() || cursor->second.inode != stamp->inode)
    return std::nullopt;
  return cursor->second.offset;
}

}  // namespace tessivane
