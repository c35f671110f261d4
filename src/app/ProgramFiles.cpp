#include "app/ProgramFiles.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdlib>
#include <filesystem>
#include <system_error>

namespace tessivane {

bool hasDisplayVariable() {
  constexpr std::array names = {"DISPLAY", "WAYLAND_DISPLAY", "QT_QPA_PLATFORM"};
  return std::ranges::any_of(names, [](const char* name) {
    const char* value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): no other thread yet
    return value != nullptr && *value != '\0';
  });
}

void becomeProgram(const std::string& name, const std::string& argument) {
  std::error_code error;
  const auto own = std::filesystem::read_symlink("/proc/self/exe", error);
  if (error)
    return;
  const std::string path = own.parent_path() / name;
  const char* first = argument.empty() ? nullptr : argument.c_str();
  ::execl(path.c_str(), name.c_str(), first, nullptr);
}

}  // namespace tessivane
