#pragma once

// A token store in memory, for tests with threads.

#include <optional>

#include "github/GitHubTokenStore.h"
#include "support/Mutex.h"

namespace tessivane {

class LockedTokenStore final : public GitHubTokenStore {
 public:
  std::optional<GitHubSignIn> load() override {
    const MutexLock lock(mutex_);
    return signIn_;
  }
  bool save(const GitHubSignIn& signIn) override {
    const MutexLock lock(mutex_);
    signIn_ = signIn;
    return true;
  }
  void remove() override {
    const MutexLock lock(mutex_);
    signIn_.reset();
  }

 private:
  Mutex mutex_;
  std::optional<GitHubSignIn> signIn_ GUARDED_BY(mutex_);
};

}  // namespace tessivane
