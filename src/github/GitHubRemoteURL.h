#pragma once

// Remotes as a git config tells them, and the repository on GitHub that one points to. Pure
// functions, safe on every thread.

#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessivane {

struct GitHubRemoteURL {
  /// The values of "url" and "pushurl" of every remote, in file order.
  static std::vector<std::string> remoteURLs(std::string_view config);

  /// "owner/name" out of an address on GitHub, with a scheme or in scp form, as it is written
  /// there. Quotes around the address, user, port, slashes at the ends of the path and a final
  /// ".git" are left out. Nothing for another host and for a path of more or less than two
  /// components.
  static std::optional<std::string> nameWithOwner(std::string_view url);
};

}  // namespace tessivane
