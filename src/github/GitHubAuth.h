#pragma once

// Decides which GitHub token is in force: the program's own sign-in, else that of the `gh` command.
// Safe on every thread. `credential`, `signIn` and `signOut` may block on the token store or on
// `gh`, so they are never called on the main thread, and no lock is held meanwhile. One for the
// process, owned by the wiring; the poller and the account model share it.

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <unordered_map>
#include <vector>

#include "github/GitHubCredential.h"
#include "github/GitHubTokenStore.h"
#include "platform/UserDefaults.h"
#include "support/Date.h"
#include "support/Mutex.h"

namespace tessivane {

class GitHubAuth final {
 public:
  /// The token of the `gh` command, if it has one; blocks until `gh` has ended or `stop` is
  /// requested.
  using GHToken = std::function<std::optional<std::string>(const std::stop_token& stop)>;

  GitHubAuth(std::shared_ptr<GitHubTokenStore> store, GHToken ghToken, Clock clock);
  GitHubAuth(const GitHubAuth&) = delete;
  GitHubAuth& operator=(const GitHubAuth&) = delete;
  ~GitHubAuth() = default;

  /// How long an answer of `gh` holds, that there is no token included, and how long the store is
  /// believed to have no sign-in: a keyring that is locked says the same as one that is empty, and
  /// is opened some time after the desktop has come up.
  static constexpr Seconds readingAge{300};

  /// The credential in force. A sign-in that the store has is read once; a store without one and
  /// `gh` are read at most every 300 seconds, `gh` also at once after `markInvalid`. What was cut
  /// short by `stop` is not kept.
  std::optional<GitHubCredential> credential(const std::stop_token& stop = {});

  /// Has the next `credential` read the store and `gh` in any case: for a person who looks again
  /// after having unlocked the one or signed in with the other. Tells nobody.
  void reread();

  /// The token that GitHub has refused last.
  std::optional<std::string> invalidToken() const;

  std::optional<std::string> login(const std::string& token) const;
  /// Keeps, for this run, as whom the token signs in.
  void remember(const std::string& login, const std::string& token);
  void markInvalid(const std::string& token);

  /// Stores the program's own sign-in. Whether the store took it.
  bool signIn(const std::string& login, const std::string& token);
  /// Forgets the program's own sign-in. `gh` is left alone.
  void signOut();

  /// The client id of the person's OAuth App, from the setting "github.clientID"; there is none
  /// built in.
  static std::optional<std::string> clientID(const UserDefaults& defaults);

  /// Keeps `changed` called, on whatever thread the change is made and without any lock held, each
  /// time that what `credential` gives may have changed; until the handle goes, which may be while
  /// a call is under way on another thread.
  [[nodiscard]] std::shared_ptr<void> observe(std::function<void()> changed);

 private:
  // What was read last, and when. Whoever reads compares `generation` before and after: when it has
  // moved on, the reading is of the past and must not be kept.
  struct Keychain {
    bool isRead = false;
    std::optional<GitHubSignIn> signIn = {};
    Date at = distantPast;
    std::uint64_t generation = 0;
  };
  struct GHReading {
    std::optional<std::string> token = {};
    Date at = distantPast;
  };
  struct GH {
    std::optional<GHReading> reading = {};
    std::uint64_t generation = 0;
  };
  struct Observer {
    std::function<void()> changed;
  };

  bool isFresh(Date reading) const;
  std::optional<GitHubSignIn> ownSignIn();
  std::optional<std::string> commandToken(const std::stop_token& stop);
  void forgetKeychain() REQUIRES_LOCK(lock_);
  void forgetGH() REQUIRES_LOCK(lock_);
  void notify();

  const std::shared_ptr<GitHubTokenStore> store_;
  const GHToken ghToken_;
  const Clock clock_;
  mutable Mutex lock_;
  Keychain keychain_ GUARDED_BY(lock_);
  GH gh_ GUARDED_BY(lock_);
  std::unordered_map<std::string, std::string> logins_ GUARDED_BY(lock_);
  std::optional<std::string> invalidToken_ GUARDED_BY(lock_);
  std::vector<std::weak_ptr<Observer>> observers_ GUARDED_BY(lock_);
};

}  // namespace tessivane
