#include "github/GitHubSettings.h"

#include <gtest/gtest.h>

#include "helpers/ManualQueue.h"
#include "platform/MemoryUserDefaults.h"

namespace tessivane {
namespace {

TEST(GitHubSettingsTest, TakesOverTheOlderKeyOnce) {
  struct Case {
    const char* name = "";
    std::optional<DefaultsValue> old;
    std::optional<DefaultsValue> current;
    bool enabled = false;
    bool oldStays = false;
  };
  const Case cases[] = {
      {"nothing stored", {}, {}, false, false},
      {"older on", true, {}, true, false},
      {"older off does not undo", false, true, true, false},
      {"older on does not undo", true, false, false, false},
      {"a value of another type is there, and is no yes", true, "yes", false, false},
      {"older of another type stays", "yes", {}, false, true},
  };
  for (const Case& item : cases) {
    SCOPED_TRACE(item.name);
    ManualClock clock;
    ManualQueue queue(clock);
    MemoryUserDefaults defaults(queue);
    if (item.old)
      defaults.set("activity.githubMerges", *item.old);
    if (item.current)
      defaults.set("activity.github", *item.current);
    GitHubSettings::migrate(defaults);
    EXPECT_EQ(GitHubSettings::isEnabled(defaults), item.enabled);
    EXPECT_EQ(defaults.value("activity.githubMerges").has_value(), item.oldStays);
  }
}

}  // namespace
}  // namespace tessivane
