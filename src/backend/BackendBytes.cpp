#include "backend/BackendBytes.h"

#include <cstring>

namespace tessivane {

bool BackendBytes::contains(std::string_view needle, std::string_view range) {
  return !range.empty() &&
         ::memmem(range.data(), range.size(), needle.data(), needle.size()) != nullptr;
}

std::string_view BackendBytes::lineAround(std::string_view range, std::size_t offset) {
  // `rfind` would look at one byte after the other.
  const void* feed = range.empty() ? nullptr : ::memrchr(range.data(), '\n', offset);
  const auto begin =
      feed == nullptr ? std::size_t{0}
                      : static_cast<std::size_t>(static_cast<const char*>(feed) - range.data()) + 1;
  return range.substr(begin, range.find('\n', offset) - begin);
}

std::string_view BackendBytes::lastLine(std::string_view range) {
  const auto last = range.find_last_not_of('\n');
  return last == std::string_view::npos ? std::string_view() : lineAround(range, last);
}

}  // namespace tessivane
