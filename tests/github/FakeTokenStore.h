#pragma once

// A token store in memory. The closure is called in the middle of every load, with what is about to
// be given already read.

#include <functional>
#include <optional>

#include "github/GitHubTokenStore.h"

namespace tessivane {

class FakeTokenStore final : public GitHubTokenStore {
 public:
  std::optional<GitHubSignIn> load() override {
    ++loads;
    auto read = signIn;
    if (duringLoad)
      duringLoad();
    return read;
  }

  bool save(const GitHubSignIn& saved) override {
    if (!isWritable)
      return false;
    signIn = saved;
    return true;
  }

  void remove() override { signIn.reset(); }

  std::optional<GitHubSignIn> signIn;
  bool isWritable = true;
  int loads = 0;
  std::function<void()> duringLoad;
};

}  // namespace tessivane
