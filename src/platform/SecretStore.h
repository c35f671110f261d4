#pragma once

// Where small secrets are kept between runs: the keyring of the person's desktop. A record of
// closures: the live one is `libsecretStore()` in platform/linux, tests fill in their own; as it
// stands it is the one of a computer without a keyring. Safe on every thread; the operations may
// block for as long as the store's limit, so they are never called on the main thread.

#include <functional>
#include <optional>
#include <string>

namespace tessivane {

struct Secret {
  std::string account = {};
  std::string value = {};

  friend bool operator==(const Secret&, const Secret&) = default;
};

/// Each service, a name that programs choose for themselves, has at most one secret.
struct SecretStore {
  /// The service's secret; nothing also when the keyring is locked or cannot be asked.
  std::function<std::optional<Secret>(const std::string& service)> find = [](const std::string&) {
    return std::nullopt;
  };

  /// Puts the secret in place of the service's present one, under a label that tools for keyrings
  /// show. Whether it was stored; if not, the service may be left without any.
  std::function<bool(const std::string& service, const std::string& label, const Secret& secret)>
      replace = [](const std::string&, const std::string&, const Secret&) { return false; };

  /// Removes the service's secret. A locked one stays.
  std::function<void(const std::string& service)> remove = [](const std::string&) {};
};

}  // namespace tessivane
