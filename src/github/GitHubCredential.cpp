#include "github/GitHubCredential.h"

#include <algorithm>

namespace tessivane {

bool isGitHubToken(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](char character) {
    return character > ' ' && character <= '~';
  });
}

}  // namespace tessivane
