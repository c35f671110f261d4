// Gives every test of this program the application object that Qt's widgets need, on no display.

#include <QApplication>
#include <memory>

#include <gtest/gtest.h>

namespace tessivane {
namespace {

class OffscreenApplication final : public testing::Environment {
 public:
  void SetUp() override {
    qputenv("QT_QPA_PLATFORM", "offscreen");
    application_ = std::make_unique<QApplication>(count_, arguments_);
  }
  void TearDown() override { application_.reset(); }

 private:
  char name_[6] = "tests";  // NOLINT(modernize-avoid-c-arrays): what Qt takes
  char* arguments_[2] = {name_, nullptr};
  int count_ = 1;
  std::unique_ptr<QApplication> application_;
};

[[maybe_unused]] const auto* const registered =
    testing::AddGlobalTestEnvironment(new OffscreenApplication);

}  // namespace
}  // namespace tessivane
