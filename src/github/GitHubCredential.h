#pragma once

// With what, and as whom, GitHub is asked. A plain value, safe on every thread.

#include <optional>
#include <string>
#include <string_view>

namespace tessivane {

/// Whose sign-in a token comes from: the program's own or that of the `gh` command.
enum class GitHubCredentialSource { tessivane, ghCLI };

/// The token is secret: it goes into the store and into the header of a request, nowhere else.
struct GitHubCredential {
  std::string token = {};
  GitHubCredentialSource source = GitHubCredentialSource::tessivane;
  std::optional<std::string> login = {};

  friend bool operator==(const GitHubCredential&, const GitHubCredential&) = default;
};

/// Whether the text can be a token at all: printable ASCII without blanks, and some of it. Anything
/// else is a message or a mishap, and would break the header that a token goes into.
bool isGitHubToken(std::string_view text);

}  // namespace tessivane
