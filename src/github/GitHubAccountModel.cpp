#include "github/GitHubAccountModel.h"

#include <utility>

#include "github/GitHubAPI.h"
#include "support/Text.h"

namespace tessivane {

namespace {

using Model = GitHubAccountModel;
using Source = GitHubCredentialSource;

// Of what GitHub calls an error, in case it is a long story.
constexpr std::size_t longestReason = 100;

std::string codeRefusal(const GitHubError& error) {
  if (error.kind == GitHubError::Kind::network)
    return "Couldn't reach GitHub. Try again.";
  return "GitHub didn't accept the client ID (" + word(error) + ").";
}

// Makes the token the program's own sign-in.
Model::SignIn adopt(const Model::Environment& environment,
                    const std::string& token,
                    const std::stop_token& stop) {
  const auto answer =
      GitHubAPI::viewerLogin(token, *environment.transport, environment.clock(), stop);
  const auto* const login = std::get_if<std::string>(&answer);
  if (login == nullptr)
    return Model::Failed{"Signed in, but couldn't read the account. Try again."};
  // The last moment at which the person can change their mind.
  if (stop.stop_requested())
    return Model::Idle{};
  if (!environment.auth->signIn(*login, token))
    return Model::Failed{"Couldn't save the sign-in to the Keychain."};
  return Model::Idle{};
}

Model::SignIn outcome(const Model::Environment& environment,
                      const GitHubDeviceFlowResult& result,
                      const std::stop_token& stop) {
  using Kind = GitHubDeviceFlowResult::Kind;
  switch (result.kind) {
    case Kind::token:
      return adopt(environment, result.token, stop);
    case Kind::denied:
      return Model::Failed{"Sign-in was declined on GitHub."};
    case Kind::expired:
      return Model::Failed{"The code expired. Try again."};
    case Kind::failed: {
      const std::string reason = collapsedWhitespace(result.reason);
      return Model::Failed{"GitHub sign-in failed (" +
                           std::string(prefixCharacters(reason, longestReason)) + ")."};
    }
    case Kind::cancelled:
      break;
  }
  return Model::Idle{};
}

// A whole sign-in, from the code to the keyring. `tell` shows a state, unless `stop` was requested.
template <typename Tell>
void runSignIn(const Model::Environment& environment,
               const std::string& clientID,
               const std::stop_token& stop,
               Tell tell) {
  GitHubTransport& transport = *environment.transport;
  const auto answer = GitHubDeviceFlow::requestCode(clientID, transport, environment.clock(), stop);
  if (const auto* const error = std::get_if<GitHubError>(&answer)) {
    tell(Model::Failed{codeRefusal(*error)});
    return;
  }
  const auto& code = std::get<GitHubDeviceCode>(answer);
  tell(Model::Waiting{code});
  const auto result =
      GitHubDeviceFlow::poll(code, clientID, transport, environment.sleep, environment.clock, stop);
  tell(outcome(environment, result, stop));
}

}  // namespace

GitHubAccountModel::GitHubAccountModel(Environment environment)
    : environment_(std::move(environment)) {
  observer_ =
      environment_.auth->observe([queue = environment_.mainQueue, weak = std::weak_ptr(self_)] {
        queue->async([weak] {
          if (const auto self = weak.lock())
            (*self)->refresh(false);
        });
      });
}

GitHubAccountModel::~GitHubAccountModel() {
  task_.request_stop();
  refreshes_.request_stop();
}

void GitHubAccountModel::refresh(bool reload) {
  if (reload)
    status_.set(Checking{});
  environment_.worker->async([environment = environment_,
                              weak = std::weak_ptr(self_),
                              stop = refreshes_.get_token(),
                              reload] {
    if (stop.stop_requested())
      return;
    const Status status = findStatus(environment, reload, stop);
    environment.mainQueue->async([weak, status] {
      if (const auto self = weak.lock())
        (*self)->status_.set(status);
    });
  });
}

GitHubAccountModel::Status GitHubAccountModel::findStatus(const Environment& environment,
                                                          bool reload,
                                                          const std::stop_token& stop) {
  GitHubAuth& auth = *environment.auth;
  if (reload)
    auth.reread();
  const auto credential = auth.credential(stop);
  if (!credential)
    return SignedOut{};
  const Source source = credential->source;
  if (auth.invalidToken() == credential->token)
    return Invalid{source};
  // What GitHub has said in this run is newer than what the keyring says.
  auto known = auth.login(credential->token);
  if (!known)
    known = credential->login;
  if (known && !reload)
    return SignedIn{known, source};
  const auto answer =
      GitHubAPI::viewerLogin(credential->token, *environment.transport, environment.clock(), stop);
  if (const auto* const login = std::get_if<std::string>(&answer)) {
    auth.remember(*login, credential->token);
    return SignedIn{*login, source};
  }
  if (std::get<GitHubError>(answer).kind == GitHubError::Kind::unauthorized) {
    auth.markInvalid(credential->token);
    return Invalid{source};
  }
  return SignedIn{known, source};
}

void GitHubAccountModel::startSignIn() {
  const auto clientID = GitHubAuth::clientID(*environment_.defaults);
  if (!clientID)
    return;
  task_.request_stop();
  task_ = std::stop_source();
  const std::stop_token stop = task_.get_token();
  environment_.signInWorker->async(
      [environment = environment_, weak = std::weak_ptr(self_), clientID = *clientID, stop] {
        if (stop.stop_requested())
          return;
        runSignIn(environment, clientID, stop, [&](const SignIn& state) {
          environment.mainQueue->async([weak, stop, state] {
            const auto self = weak.lock();
            if (self != nullptr && !stop.stop_requested())
              (*self)->signIn_.set(state);
          });
        });
      });
  // Last: whoever is told may destroy the model.
  signIn_.set(Requesting{});
}

void GitHubAccountModel::cancelSignIn() {
  task_.request_stop();
  signIn_.set(Idle{});
}

void GitHubAccountModel::signOut() {
  // Behind the sign-in that ends now, which may be past the point of no return.
  environment_.signInWorker->async([auth = environment_.auth] { auth->signOut(); });
  cancelSignIn();
}

std::string GitHubAccountModel::statusWords(const Status& status) {
  if (std::holds_alternative<SignedOut>(status))
    return "Not signed in to GitHub";
  if (const auto* const invalid = std::get_if<Invalid>(&status)) {
    return invalid->source == Source::tessivane
               ? "GitHub sign-in expired"
               : "GitHub rejected the gh CLI's token. Run gh auth login in Terminal to sign in "
                 "again.";
  }
  if (const auto* const signedIn = std::get_if<SignedIn>(&status)) {
    return signedIn->source == Source::tessivane
               ? "Sign Out removes Tessivane's sign-in from the Keychain."
               : "Uses the gh command-line tool's sign-in. Tessivane can't sign out of gh; run gh "
                 "auth logout in Terminal for that, or turn the toggle off.";
  }
  return "";
}

std::vector<std::string> GitHubAccountModel::signInWords(const SignIn& signIn) {
  if (std::holds_alternative<Requesting>(signIn))
    return {"Asking GitHub for a sign-in code…"};
  if (const auto* const waiting = std::get_if<Waiting>(&signIn)) {
    return {"Enter this code on GitHub to sign in:",
            waiting->code.userCode,
            "Waiting for you to approve at " + waiting->code.verificationURI};
  }
  if (const auto* const failed = std::get_if<Failed>(&signIn))
    return {failed->sentence};
  return {};
}

}  // namespace tessivane
