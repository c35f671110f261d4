#include "github/GitHubError.h"

namespace tessivane {

std::string word(const GitHubError& error) {
  switch (error.kind) {
    case GitHubError::Kind::rateLimited:
      return "403";
    case GitHubError::Kind::http:
      return std::to_string(error.status);
    case GitHubError::Kind::unauthorized:
      return "401";
    case GitHubError::Kind::graphQL:
      return "200 (graphql error)";
    case GitHubError::Kind::malformed:
      return "malformed";
    case GitHubError::Kind::network:
      break;
  }
  return "network";
}

}  // namespace tessivane
