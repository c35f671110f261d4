#pragma once

// Where the program's own sign-in is kept between runs. Safe on every thread; the operations may
// block for up to two seconds, so they are never called on the main thread.

#include <optional>
#include <string>

namespace tessivane {

struct GitHubSignIn {
  std::string login = {};
  std::string token = {};

  friend bool operator==(const GitHubSignIn&, const GitHubSignIn&) = default;
};

class GitHubTokenStore {
 public:
  GitHubTokenStore() = default;
  GitHubTokenStore(const GitHubTokenStore&) = delete;
  GitHubTokenStore& operator=(const GitHubTokenStore&) = delete;
  virtual ~GitHubTokenStore() = default;

  /// What is stored; nothing also when the store cannot be asked.
  virtual std::optional<GitHubSignIn> load() = 0;

  /// Puts the sign-in in place of the one that is stored. Whether it was stored.
  virtual bool save(const GitHubSignIn& signIn) = 0;

  virtual void remove() = 0;
};

}  // namespace tessivane
