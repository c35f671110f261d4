// Gives every test of this program a home directory of its own: what the program reads and writes
// there is never the person's.

#include <cstdlib>
#include <memory>

#include <gtest/gtest.h>

#include "helpers/TempHome.h"

namespace tessivane {
namespace {

class OwnHome final : public testing::Environment {
 public:
  void SetUp() override {
    home_ = std::make_unique<TempHome>();
    // NOLINTBEGIN(concurrency-mt-unsafe): no other thread runs yet
    ::setenv("HOME", home_->path().c_str(), 1);
    for (const char* variable :
         {"XDG_CONFIG_HOME", "XDG_DATA_HOME", "TESSIVANE_SYNTHETIC_ACTIVITY"})
      ::unsetenv(variable);
    // NOLINTEND(concurrency-mt-unsafe)
  }
  void TearDown() override { home_.reset(); }

 private:
  std::unique_ptr<TempHome> home_;
};

[[maybe_unused]] const auto* const registered = testing::AddGlobalTestEnvironment(new OwnHome);

}  // namespace
}  // namespace tessivane
