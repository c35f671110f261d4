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
  bus_->startKeyring();
  EXPECT_TRUE(newRun()->signIn("ann", "gho_1"));
  EXPECT_TRUE(newRun()->signIn("bob", "gho_2"));
  const auto auth = newRun();
  EXPECT_EQ(auth->credential(),
            (GitHubCredential{
                .token = "gho_2", .source = GitHubCredentialSource::tessivane, .login = "bob"}));
  auth->signOut();
  EXPECT_EQ(bus_->secretCount("Tessivane GitHub"), 0U);
}

TEST_F(GitHubKeychainStoreTest, AKeyringThatIsMuteMeansSignedOutWithinTwoSeconds) {
  const SessionBus::Impostor mute(*bus_, "org.freedesktop.secrets");
  const auto start = std::chrono::steady_clock::now();
  EXPECT_EQ(newRun()->credential(), std::nullopt);
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(2));
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
