#include "platform/UserDefaults.h"

#include <memory>
#include <optional>
#include <string>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "helpers/ManualQueue.h"
#include "helpers/TempHome.h"
#include "platform/MemoryUserDefaults.h"
#include "platform/linux/FileUserDefaults.h"

namespace tessivane {
namespace {

// What every form of the settings does.
class UserDefaultsTest : public testing::TestWithParam<bool> {
 protected:
  std::unique_ptr<UserDefaults> make() {
    if (!GetParam())
      return std::make_unique<MemoryUserDefaults>(queue_);
    return std::make_unique<FileUserDefaults>(
        home_.path("config/Tessivane/defaults.json"), queue_, [](const std::string& sentence) {
          ADD_FAILURE() << sentence;
        });
  }

  TempHome home_;
  ManualClock clock_;
  ManualQueue queue_{clock_};
  std::unique_ptr<UserDefaults> defaults_ = make();
};

INSTANTIATE_TEST_SUITE_P(Forms, UserDefaultsTest, testing::Bool(), [](const auto& test) {
  return test.param ? "File" : "Memory";
});

TEST_P(UserDefaultsTest, EachTypeReadsAsItselfOnly) {
  const DefaultsArray array = {1.5, "two", true};
  const DefaultsDictionary dictionary = {{"claude:1", DefaultsArray{796'000'000.25, 1}}};
  UserDefaults& defaults = *defaults_;
  defaults.set("boolean", false);
  defaults.set("number", 3);
  defaults.set("text", "word");
  defaults.set("data", DefaultsData{std::string("a\0\xFF", 3)});
  defaults.set("array", array);
  defaults.set("dictionary", dictionary);

  for (const std::string key :
       {"boolean", "number", "text", "data", "array", "dictionary", "absent"}) {
    SCOPED_TRACE(key);
    const auto own = [&key](const char* name, auto value) {
      return key == name ? std::optional(value) : std::nullopt;
    };
    EXPECT_EQ(defaults.boolean(key), own("boolean", false));
    EXPECT_EQ(defaults.number(key), own("number", 3.0));
    EXPECT_EQ(defaults.text(key), own("text", std::string("word")));
    EXPECT_EQ(defaults.data(key), own("data", std::string("a\0\xFF", 3)));
    EXPECT_EQ(defaults.array(key), own("array", array));
    EXPECT_EQ(defaults.dictionary(key), own("dictionary", dictionary));
  }
}

TEST_P(UserDefaultsTest, TellsOfGatheredChangesOnce) {
  int told = 0;
  std::optional<double> seen;
  const Subscription subscription = defaults_->subscribe([&] {
    ++told;
    seen = defaults_->number("n");
    // A change from within is told as well, and ends when there is nothing left to change.
    defaults_->set("n", 3);
  });
  struct Step {
    std::string what;
    std::function<void()> change;
    int tellings;
  };
  const Step steps[] = {{"two changes", [&] { defaults_->set("n", 1), defaults_->set("n", 2); }, 2},
                        {"an equal value", [&] { defaults_->set("n", 3); }, 0},
                        {"removing", [&] { defaults_->remove("n"); }, 2},
                        {"removing nothing", [&] { defaults_->remove("m"); }, 0}};
  for (const auto& [what, change, tellings] : steps) {
    told = 0;
    change();
    EXPECT_EQ(told, 0) << what << ": told within the change";
    queue_.runPending();
    EXPECT_EQ(told, tellings) << what;
  }
  EXPECT_EQ(seen, 3);
}

TEST_P(UserDefaultsTest, MayGoBeforeItsObserversAreTold) {
  const Subscription subscription = defaults_->subscribe([] { FAIL(); });
  defaults_->set("key", true);
  defaults_.reset();
  queue_.runPending();
}

}  // namespace
}  // namespace tessivane
