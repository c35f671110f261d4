#include "github/GitHubKeychainStore.h"

#include "github/GitHubCredential.h"

namespace tessivane {

std::optional<GitHubSignIn> GitHubKeychainStore::load() {
  auto secret = secrets_.find(service);
  if (!secret || !isGitHubToken(secret->value))
    return std::nullopt;
  return GitHubSignIn{.login = std::move(secret->account), .token = std::move(secret->value)};
}

bool GitHubKeychainStore::save(const GitHubSignIn& signIn) {
  return secrets_.replace(service, label, {.account = signIn.login, .value = signIn.token});
}

void GitHubKeychainStore::remove() {
  secrets_.remove(service);
}

}  // namespace tessivane
