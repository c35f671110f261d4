#include "sessions/ProviderCache.h"

#include <algorithm>

#include "support/Text.h"

namespace tessivane {

std::optional<Date> ProviderCacheDates::date(const std::string& text) {
  const auto known = entries_.find(text);
  if (known != entries_.end())
    return known->second;
  if (entries_.size() >= limit)
    entries_.clear();
  return entries_.emplace(text, isoDate(text)).first->second;
}

std::optional<std::string_view> ProviderCacheText::firstLine(std::string_view text,
                                                             std::size_t maxCharacters) {
  const auto begin = text.find_first_not_of("\r\n");
  if (begin == std::string_view::npos || maxCharacters < 1)
    return std::nullopt;
  const auto end = text.find_first_of("\r\n", begin);
  return prefixCharacters(text.substr(begin, std::min(end, text.size()) - begin), maxCharacters);
}

}  // namespace tessivane
