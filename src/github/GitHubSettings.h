#pragma once

// The setting "activity.github": whether GitHub is asked for pull requests. Safe on every thread.

#include "platform/UserDefaults.h"

namespace tessivane {

struct GitHubSettings {
  /// Only when the person has turned it on.
  static bool isEnabled(const UserDefaults& defaults);

  /// Takes over the older key "activity.githubMerges" and removes it.
  static void migrate(UserDefaults& defaults);
};

}  // namespace tessivane
