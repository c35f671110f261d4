#include "github/GitHubKeychainStore.h"

#include <chrono>
#include <optional>

#include <gtest/gtest.h>

#include "github/GitHubAuth.h"
#include "helpers/ManualClock.h"
#include "helpers/SessionBus.h"
#include "platform/linux/LibsecretStore.h"

namespace tessivane {
namespace {

using std::chrono::steady_clock;

// The real keyring, with the store as the program makes it. Each auth stands for a run of it.
class GitHubKeychainStoreTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!SessionBus::isInstalled())
      GTEST_SKIP() << "needs the packages dbus-daemon and gnome-keyring";
    bus_.emplace();
  }

  static std::unique_ptr<GitHubAuth> newRun() {
    return std::make_unique<GitHubAuth>(
        std::make_shared<GitHubKeychainStore>(libsecretStore()),
        [](const std::stop_token&) { return std::nullopt; },
        [] { return ManualClock::defaultStart; });
  }

  std::optional<SessionBus> bus_;
};

TEST_F(GitHubKeychainStoreTest, ASignInLastsUntilTheSignOut) {
  const GitHubCredential ann{
      .token = "gho_1", .source = GitHubCredentialSource::tessivane, .login = "ann"};
  const GitHubCredential bob{
      .token = "gho_2", .source = GitHubCredentialSource::tessivane, .login = "bob"};
  bus_->startKeyring();
  auto auth = newRun();
  EXPECT_EQ(auth->credential(), std::nullopt);
  EXPECT_TRUE(auth->signIn("ann", "gho_1"));
  EXPECT_EQ(auth->credential(), ann);
  auth = newRun();
  EXPECT_EQ(auth->credential(), ann);
  EXPECT_TRUE(auth->signIn("bob", "gho_2"));
  bus_->stopKeyring();
  bus_->startKeyring();
  auth = newRun();
  EXPECT_EQ(auth->credential(), bob);
  EXPECT_EQ(bus_->secretCount("Tessivane GitHub"), 1U);
  auth->signOut();
  EXPECT_EQ(auth->credential(), std::nullopt);
  EXPECT_EQ(newRun()->credential(), std::nullopt);
  EXPECT_EQ(bus_->secretCount("Tessivane GitHub"), 0U);
}

TEST_F(GitHubKeychainStoreTest, AKeyringThatIsMuteMeansSignedOutWithinTwoSeconds) {
  const SessionBus::Impostor mute(*bus_, "org.freedesktop.secrets");
  const auto auth = newRun();
  const auto start = steady_clock::now();
  EXPECT_EQ(auth->credential(), std::nullopt);
  EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(2));
  EXPECT_FALSE(auth->signIn("ann", "gho_1"));
}

TEST_F(GitHubKeychainStoreTest, WhatIsNoTokenIsNoSignIn) {
  bus_->startKeyring();
  const SecretStore keyring = libsecretStore();
  for (const char* text : {"", "two words", "line\nend", "\xff"}) {
    ASSERT_TRUE(keyring.replace(GitHubKeychainStore::service, "", {"ann", text}));
    EXPECT_EQ(newRun()->credential(), std::nullopt) << text;
  }
}

}  // namespace
}  // namespace tessivane
