#include "backend/BackendBytes.h"

#include <cstring>

#include "support/Text.h"

namespace tessivane {

namespace {

std::size_t find(std::string_view needle, std::string_view range) {
  if (range.empty() || needle.empty())
    return std::string_view::npos;
  const void* found = ::memmem(range.data(), range.size(), needle.data(), needle.size());
  if (found == nullptr)
    return std::string_view::npos;
  return static_cast<std::size_t>(static_cast<const char*>(found) - range.data());
}

}  // namespace

bool BackendBytes::contains(std::string_view needle, std::string_view range) {
  return find(needle, range) != std::string_view::npos;
}

std::optional<std::string> BackendBytes::stringField(std::string_view needle,
                                                     std::string_view range) {
  const auto at = find(needle, range);
  if (at == std::string_view::npos)
    return std::nullopt;
  range.remove_prefix(at + needle.size());
  const auto quote = range.find('"');
  if (quote == std::string_view::npos)
    return std::nullopt;
  return repairedUTF8(range.substr(0, quote));
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
