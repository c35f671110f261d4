#include "platform/UserDefaults.h"

namespace tessivane {

std::optional<std::string> UserDefaults::data(std::string_view key) const {
  std::optional<DefaultsData> found = get<DefaultsData>(key);
  if (!found)
    return std::nullopt;
  return std::move(found->bytes);
}

}  // namespace tessivane
