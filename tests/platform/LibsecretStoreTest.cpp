#include "platform/linux/LibsecretStore.h"

#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <functional>
#include <optional>

#include <gtest/gtest.h>

#include "helpers/SessionBus.h"
#include "helpers/TempHome.h"

namespace tessivane {
namespace {

using std::chrono::steady_clock;

constexpr const char* service = "A Service";
const Secret first{.account = "ann", .value = "one secret"};
const Secret second{.account = "bob", .value = std::string("two\0 secrets\xff", 13)};

// What a store gives that cannot be asked: nothing, and no later than promised.
void expectNothing(const SecretStore& store) {
  // Far below the 25 seconds that a call takes when nobody answers and nobody cares.
  const auto end = steady_clock::now() + std::chrono::seconds(10);
  EXPECT_EQ(store.find(service), std::nullopt);
  EXPECT_FALSE(store.replace(service, "Label", second));
  store.remove(service);
  EXPECT_LT(steady_clock::now(), end);
}

class KeyringTest : public testing::Test {
 protected:
  void SetUp() override {
    if (!SessionBus::isInstalled())
      GTEST_SKIP() << "needs the packages dbus-daemon and gnome-keyring";
    bus_.emplace();
  }

  std::optional<SessionBus> bus_;
  // Patient, so that nothing here is owed to the limit.
  const SecretStore store_ = libsecretStore(Seconds(60));
};

TEST_F(KeyringTest, KeepsOneSecretForEachService) {
  bus_->startKeyring();
  EXPECT_EQ(store_.find(service), std::nullopt);
  store_.remove(service);
  EXPECT_TRUE(store_.replace(service, "Label", first));
  EXPECT_TRUE(store_.replace("Another Service", "Label", first));
  EXPECT_EQ(store_.find(service), first);
  EXPECT_TRUE(store_.replace(service, "Label", second));
  bus_->stopKeyring();
  EXPECT_EQ(store_.find(service), std::nullopt);
  bus_->startKeyring();
  EXPECT_EQ(store_.find(service), second);
  EXPECT_EQ(bus_->secretCount(service), 1U);
  store_.remove(service);
  EXPECT_EQ(store_.find(service), std::nullopt);
  EXPECT_EQ(bus_->secretCount(service), 0U);
  EXPECT_EQ(store_.find("Another Service"), first);
}

TEST_F(KeyringTest, LeavesALockedKeyringAlone) {
  bus_->startKeyring();
  EXPECT_TRUE(store_.replace(service, "Label", first));
  // Who would ask the person to unlock it.
  const SessionBus::Impostor prompter(*bus_, "org.gnome.keyring.SystemPrompter");
  bus_->lockKeyring();
  expectNothing(store_);
  EXPECT_FALSE(store_.replace("Another Service", "Label", second));
  EXPECT_EQ(bus_->secretCount(service), 1U);
  EXPECT_FALSE(prompter.wasCalled());
  bus_->stopKeyring();
  bus_->startKeyring();
  EXPECT_EQ(store_.find(service), first);
  EXPECT_EQ(store_.find("Another Service"), std::nullopt);
}

TEST_F(KeyringTest, AsksNothingOfAServiceThatIsLocked) {
  // Some would ask the person to unlock it, and that again at every search.
  const SessionBus::Impostor locked(
      *bus_, "org.freedesktop.secrets", SessionBus::Impostor::Manner::locked);
  expectNothing(store_);
  EXPECT_TRUE(locked.wasCalled());
  EXPECT_FALSE(locked.wasPressed());
}

TEST_F(KeyringTest, ABusWithoutAKeyringHasNothing) {
  expectNothing(store_);
}

TEST_F(KeyringTest, DoesNotWaitForAServiceThatIsMute) {
  const SessionBus::Impostor mute(*bus_, "org.freedesktop.secrets");
  expectNothing(libsecretStore(Seconds(0.2)));
  EXPECT_TRUE(mute.wasCalled());
}

TEST_F(KeyringTest, NoticesAServiceThatGoesInTheMiddle) {
  const std::function<void()> operations[] = {
      [this] { EXPECT_EQ(store_.find(service), std::nullopt); },
      [this] { EXPECT_FALSE(store_.replace(service, "Label", first)); },
      [this] { store_.remove(service); },
  };
  for (const auto& operation : operations) {
    const SessionBus::Impostor mute(
        *bus_, "org.freedesktop.secrets", SessionBus::Impostor::Manner::leaves);
    const auto start = steady_clock::now();
    operation();
    EXPECT_LT(steady_clock::now() - start, std::chrono::seconds(10));
    EXPECT_TRUE(mute.wasCalled());
  }
  // What went on behind its back is none of the next one's business.
  bus_->startKeyring();
  EXPECT_TRUE(store_.replace(service, "Label", first));
  EXPECT_EQ(store_.find(service), first);
}

TEST(LibsecretStore, WithoutABusThereIsNothing) {
  const TempHome home;
  const std::string path = home.path("bus");
  // No other thread reads the environment. NOLINTNEXTLINE(concurrency-mt-unsafe)
  ::setenv("DBUS_SESSION_BUS_ADDRESS", ("unix:path=" + path).c_str(), 1);
  expectNothing(libsecretStore(Seconds(60)));

  // One that accepts the call and says no word.
  const int listener = ::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_un address{.sun_family = AF_UNIX, .sun_path = {}};
  ASSERT_LT(path.size(), sizeof(address.sun_path));
  path.copy(address.sun_path, path.size());
  ASSERT_EQ(::bind(listener, reinterpret_cast<const sockaddr*>(&address), sizeof(address)), 0);
  ASSERT_EQ(::listen(listener, 8), 0);
  expectNothing(libsecretStore(Seconds(0.2)));
  ::close(listener);
}

}  // namespace
}  // namespace tessivane
