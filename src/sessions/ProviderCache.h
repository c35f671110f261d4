#pragma once

// The small caches that keep a pass over unchanged files from parsing anything. Each belongs to one
// provider and is touched only within a discovery pass; none has a lock.

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <utility>

#include "support/Date.h"
#include "support/Files.h"

namespace tessivane {

/// What was derived from a file, by its path, for as long as the file stays as it was. The whole
/// stamp counts, not just the date: clocks of file systems tick in milliseconds, and a file can be
/// appended to twice within one tick.
template <typename T>
class FileDerivedCache final {
 public:
  const T* find(const std::string& path, const FileStamp& stamp) const {
    const auto entry = entries_.find(path);
    if (entry == entries_.end() || entry->second.first != stamp)
      return nullptr;
    return &entry->second.second;
  }

  /// Keeps `value` and returns the kept one, good until the next call.
  const T& store(const std::string& path, const FileStamp& stamp, T value) {
    auto& entry = entries_[path];
    entry = {stamp, std::move(value)};
    return entry.second;
  }

 private:
  std::unordered_map<std::string, std::pair<FileStamp, T>> entries_;
};

/// A value by key for as long as the stamp that it was made from stays equal.
template <typename Stamp, typename Value>
class ProviderCacheMemo final {
 public:
  const Value* cached(const std::string& key, const Stamp& stamp) const {
    const auto entry = entries_.find(key);
    if (entry == entries_.end() || !(entry->second.stamp == stamp))
      return nullptr;
    return &entry->second.value;
  }

  const Value& store(const std::string& key, Stamp stamp, Value value) {
    auto& entry = entries_[key];
    entry = {std::move(stamp), std::move(value)};
    return entry.value;
  }

  /// Forgets the keys that are not in `keys`. With as many keys as entries there is nothing to do.
  void prune(const std::set<std::string>& keys) {
    if (keys.size() >= entries_.size())
      return;
    std::erase_if(entries_, [&keys](const auto& entry) { return !keys.contains(entry.first); });
  }

  std::size_t size() const { return entries_.size(); }

 private:
  struct Entry {
    Stamp stamp = {};
    Value value = {};
  };
  std::unordered_map<std::string, Entry> entries_;
};

/// Parsed ISO dates by their text, failures included.
class ProviderCacheDates final {
 public:
  static constexpr std::size_t limit = 4096;

  std::optional<Date> date(const std::string& text);

 private:
  std::unordered_map<std::string, std::optional<Date>> entries_;
};

/// A text that stamps what was made from it; equal when its bytes are.
struct ProviderCacheTextStamp {
  std::string text = {};

  friend bool operator==(const ProviderCacheTextStamp&, const ProviderCacheTextStamp&) = default;
};

struct ProviderCacheText {
  /// The first line of `text` that is not empty, cut to `maxCharacters`. Line ends are line feed,
  /// carriage return, or the pair. Nothing when there is no such line, or for a maximum of 0.
  static std::optional<std::string_view> firstLine(std::string_view text,
                                                   std::size_t maxCharacters);
};

}  // namespace tessivane
