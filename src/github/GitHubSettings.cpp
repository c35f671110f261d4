#include "github/GitHubSettings.h"

namespace tessivane {

namespace {

constexpr const char* key = "activity.github";
constexpr const char* oldKey = "activity.githubMerges";

}  // namespace

bool GitHubSettings::isEnabled(const UserDefaults& defaults) {
  return defaults.boolean(key).value_or(false);
}

void GitHubSettings::migrate(UserDefaults& defaults) {
  const auto old = defaults.boolean(oldKey);
  if (!old)
    return;
  if (!defaults.value(key))
    defaults.set(key, *old);
  defaults.remove(oldKey);
}

}  // namespace tessivane
