#pragma once

// The state behind the GitHub row of the settings: who is signed in and by which source, how far a
// sign-in has come, and the words for both.
//
// Lives on the main thread, as all its operations do, and so do its observers. It may be destroyed
// while work is under way, whose results then count for nothing.

#include <memory>
#include <optional>
#include <stop_token>
#include <string>
#include <variant>
#include <vector>

#include "github/GitHubAuth.h"
#include "github/GitHubDeviceFlow.h"
#include "github/GitHubTransport.h"
#include "platform/TaskQueue.h"
#include "platform/UserDefaults.h"
#include "support/Date.h"
#include "support/Observers.h"

namespace tessivane {

class GitHubAccountModel final {
 public:
  /// The queues and settings outlive the model; the workers end before the main queue goes.
  struct Environment {
    std::shared_ptr<GitHubAuth> auth = {};
    std::shared_ptr<GitHubTransport> transport = {};
    const UserDefaults* defaults = nullptr;
    TaskQueue* mainQueue = nullptr;
    TaskQueue* worker = nullptr;
    /// Taken up by a sign-in for as long as the person needs, so nobody else's.
    TaskQueue* signInWorker = nullptr;
    Clock clock = {};
    GitHubDeviceFlow::Sleep sleep = {};
  };

  struct Checking {
    friend bool operator==(const Checking&, const Checking&) = default;
  };
  struct SignedOut {
    friend bool operator==(const SignedOut&, const SignedOut&) = default;
  };
  struct SignedIn {
    std::optional<std::string> login = {};  ///< not known when GitHub could not be asked
    GitHubCredentialSource source = GitHubCredentialSource::tessivane;

    friend bool operator==(const SignedIn&, const SignedIn&) = default;
  };
  /// GitHub has refused the token in force.
  struct Invalid {
    GitHubCredentialSource source = GitHubCredentialSource::tessivane;

    friend bool operator==(const Invalid&, const Invalid&) = default;
  };
  using Status = std::variant<Checking, SignedOut, SignedIn, Invalid>;

  struct Idle {
    friend bool operator==(const Idle&, const Idle&) = default;
  };
  /// GitHub is asked for a code.
  struct Requesting {
    friend bool operator==(const Requesting&, const Requesting&) = default;
  };
  /// The person is to enter the code.
  struct Waiting {
    GitHubDeviceCode code = {};

    friend bool operator==(const Waiting&, const Waiting&) = default;
  };
  /// Until the next sign-in begins or this one is cancelled.
  struct Failed {
    std::string sentence = {};

    friend bool operator==(const Failed&, const Failed&) = default;
  };
  using SignIn = std::variant<Idle, Requesting, Waiting, Failed>;

  static constexpr const char* signInButton = "Sign in with GitHub";
  static constexpr const char* ghHint =
      "If the gh CLI is signed in, Tessivane uses its sign-in automatically.";
  static constexpr const char* clientIDMissing =
      "Sign-in needs a GitHub OAuth App client ID (add it under Advanced below).";
  static constexpr const char* clientIDLabel = "From your GitHub OAuth App";
  static constexpr const char* clientIDHelp =
      "Sign in with GitHub needs a GitHub OAuth App with Device Flow enabled. On GitHub, open "
      "Settings, Developer settings, OAuth Apps, and make an app or choose one of yours. Tick "
      "Enable "
      "Device Flow there and paste the app's client ID here. Not needed when the gh CLI is signed "
      "in.";

  /// The status stays `checking` until the first refresh.
  explicit GitHubAccountModel(Environment environment);
  GitHubAccountModel(const GitHubAccountModel&) = delete;
  GitHubAccountModel& operator=(const GitHubAccountModel&) = delete;
  /// Cancels a sign-in.
  ~GitHubAccountModel();

  const Observable<Status>& status() const { return status_; }
  const Observable<SignIn>& signIn() const { return signIn_; }

  /// Whether there is a client id, without which a sign-in does not start.
  bool canSignIn() const { return GitHubAuth::clientID(*environment_.defaults).has_value(); }

  /// Finds out who is signed in; happens by itself when the auth tells of a change. With `reload`,
  /// for a person who wants to know: shows that it is checking, reads the keyring and `gh` again,
  /// and has GitHub confirm the token also if the login is known.
  void refresh(bool reload);

  /// Begins a sign-in, in place of one that is under way. Nothing without a client id.
  void startSignIn();
  /// Ends the sign-in that is under way, and forgets one that has failed.
  void cancelSignIn();
  /// The same, and removes the program's own sign-in.
  void signOut();

  /// What the row says of a status; nothing while checking.
  static std::string statusWords(const Status& status);
  /// What the row says of a sign-in, in lines: none when idle, the second of three is the code.
  static std::vector<std::string> signInWords(const SignIn& signIn);

 private:
  static Status findStatus(const Environment& environment,
                           bool reload,
                           const std::stop_token& stop);

  const Environment environment_;
  Observable<Status> status_{Checking{}};
  Observable<SignIn> signIn_{Idle{}};
  std::stop_source task_;
  std::stop_source refreshes_;
  // Held weakly by what comes back to the main thread. Before the observer, so that it goes later.
  std::shared_ptr<GitHubAccountModel*> self_ = std::make_shared<GitHubAccountModel*>(this);
  std::shared_ptr<void> observer_;
};

}  // namespace tessivane
