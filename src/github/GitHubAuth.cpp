#include "github/GitHubAuth.h"

#include <utility>

#include "support/Text.h"

namespace tessivane {

namespace {

constexpr const char* clientIDKey = "github.clientID";

}  // namespace

GitHubAuth::GitHubAuth(std::shared_ptr<GitHubTokenStore> store, GHToken ghToken, Clock clock)
    : store_(std::move(store)), ghToken_(std::move(ghToken)), clock_(std::move(clock)) {}

std::optional<GitHubCredential> GitHubAuth::credential(const std::stop_token& stop) {
  if (const auto own = ownSignIn()) {
    return GitHubCredential{
        .token = own->token, .source = GitHubCredentialSource::tessivane, .login = own->login};
  }
  const auto token = commandToken(stop);
  if (!token)
    return std::nullopt;
  return GitHubCredential{
      .token = *token, .source = GitHubCredentialSource::ghCLI, .login = login(*token)};
}

// One from the future was made before the clock was set back.
bool GitHubAuth::isFresh(Date reading) const {
  const Seconds age = elapsed(reading, clock_());
  return age >= Seconds(0) && age < readingAge;
}

std::optional<GitHubSignIn> GitHubAuth::ownSignIn() {
  for (;;) {
    Keychain known;
    {
      const MutexLock lock(lock_);
      known = keychain_;
    }
    if (known.isRead && (known.signIn || isFresh(known.at)))
      return known.signIn;
    auto signIn = store_->load();
    const Date now = clock_();
    const bool isNews = known.isRead && signIn;
    {
      const MutexLock lock(lock_);
      // Somebody has signed in or out meanwhile.
      if (keychain_.generation != known.generation)
        continue;
      keychain_ =
          Keychain{.isRead = true, .signIn = signIn, .at = now, .generation = known.generation};
    }
    if (isNews)
      notify();
    return signIn;
  }
}

std::optional<std::string> GitHubAuth::commandToken(const std::stop_token& stop) {
  GH known;
  {
    const MutexLock lock(lock_);
    known = gh_;
  }
  if (known.reading && isFresh(known.reading->at))
    return known.reading->token;
  auto token = ghToken_(stop);
  if (stop.stop_requested())
    return std::nullopt;
  const Date now = clock_();
  const MutexLock lock(lock_);
  if (gh_.generation == known.generation)
    gh_.reading = GHReading{.token = token, .at = now};
  return token;
}

void GitHubAuth::reread() {
  const MutexLock lock(lock_);
  forgetKeychain();
  forgetGH();
}

std::optional<std::string> GitHubAuth::invalidToken() const {
  const MutexLock lock(lock_);
  return invalidToken_;
}

std::optional<std::string> GitHubAuth::login(const std::string& token) const {
  const MutexLock lock(lock_);
  const auto found = logins_.find(token);
  if (found == logins_.end())
    return std::nullopt;
  return found->second;
}

void GitHubAuth::remember(const std::string& login, const std::string& token) {
  {
    const MutexLock lock(lock_);
    std::string& known = logins_[token];
    if (known == login)
      return;
    known = login;
  }
  notify();
}

void GitHubAuth::markInvalid(const std::string& token) {
  {
    const MutexLock lock(lock_);
    const bool wasKnown = invalidToken_ == token;
    invalidToken_ = token;
    forgetGH();
    if (wasKnown)
      return;
  }
  notify();
}

bool GitHubAuth::signIn(const std::string& login, const std::string& token) {
  const bool stored = store_->save({.login = login, .token = token});
  {
    const MutexLock lock(lock_);
    forgetKeychain();
    logins_[token] = login;
    if (invalidToken_ == token)
      invalidToken_.reset();
  }
  notify();
  return stored;
}

void GitHubAuth::signOut() {
  store_->remove();
  {
    const MutexLock lock(lock_);
    forgetKeychain();
  }
  notify();
}

std::optional<std::string> GitHubAuth::clientID(const UserDefaults& defaults) {
  const auto text = defaults.text(clientIDKey);
  const std::string_view id = trimmed(text ? *text : std::string_view());
  if (id.empty())
    return std::nullopt;
  return std::string(id);
}

std::shared_ptr<void> GitHubAuth::observe(std::function<void()> changed) {
  auto observer = std::make_shared<Observer>(Observer{std::move(changed)});
  const MutexLock lock(lock_);
  std::erase_if(observers_, [](const auto& other) { return other.expired(); });
  observers_.push_back(observer);
  return observer;
}

void GitHubAuth::forgetKeychain() {
  keychain_ = Keychain{.generation = keychain_.generation + 1};
}

void GitHubAuth::forgetGH() {
  gh_ = GH{.generation = gh_.generation + 1};
}

void GitHubAuth::notify() {
  std::vector<std::weak_ptr<Observer>> observers;
  {
    const MutexLock lock(lock_);
    observers = observers_;
  }
  for (const auto& weak : observers) {
    if (const auto observer = weak.lock())
      observer->changed();
  }
}

}  // namespace tessivane
