#pragma once

// The live token store: one secret in the keyring of the desktop. Safe on every thread.

#include <utility>

#include "github/GitHubTokenStore.h"
#include "platform/SecretStore.h"

namespace tessivane {

class GitHubKeychainStore final : public GitHubTokenStore {
 public:
  static constexpr const char* service = "Tessivane GitHub";
  static constexpr const char* label = "Tessivane GitHub sign-in";

  explicit GitHubKeychainStore(SecretStore secrets) : secrets_(std::move(secrets)) {}

  std::optional<GitHubSignIn> load() override;
  bool save(const GitHubSignIn& signIn) override;
  void remove() override;

 private:
  const SecretStore secrets_;
};

}  // namespace tessivane
