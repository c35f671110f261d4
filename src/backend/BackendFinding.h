#pragma once

// What a transcript tells of: a pull request was opened or merged, files were edited. Plain values
// that the scanners make and the activity store attributes and stores.

#include <cstdint>
#include <optional>
#include <string>
#include <variant>
#include <vector>

#include "activity/ActivityEvent.h"
#include "support/Date.h"

namespace tessivane {

struct BackendPRFinding {
  ActivityKind kind = ActivityKind::prOpened;  ///< or `prMerged`
  std::int64_t number = 0;
  std::optional<std::string> slug = {};   ///< "owner/repo" in lower case
  std::optional<std::string> title = {};  ///< of one that was opened
  Date date = distantPast;

  friend bool operator==(const BackendPRFinding&, const BackendPRFinding&) = default;
};

struct BackendEditFinding {
  std::string key = {};                 ///< "native:{id}" with the id of the tool call
  std::vector<std::string> paths = {};  ///< as the tool wrote them
  Date date = distantPast;

  friend bool operator==(const BackendEditFinding&, const BackendEditFinding&) = default;
};

using BackendFinding = std::variant<BackendPRFinding, BackendEditFinding>;

}  // namespace tessivane
