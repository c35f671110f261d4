#pragma once

// Search of a long run of bytes for any of a few short texts at once, at close to the speed of
// memory: what decides that a transcript line is worth parsing. Immutable after construction, safe
// on every thread.

#include <cstddef>
#include <initializer_list>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace tessivane {

class NeedleSet final {
 public:
  static constexpr std::size_t maxNeedles = 8;

  /// At most `maxNeedles` texts of two bytes or more; others are ignored.
  NeedleSet(std::initializer_list<std::string_view> needles);

  /// The offset of the first occurrence of any needle, or nothing.
  std::optional<std::size_t> find(std::string_view bytes) const;

  bool occursIn(std::string_view bytes) const { return find(bytes).has_value(); }

  /// The same result byte by byte: for machines without the vector instructions, and for tests.
  std::optional<std::size_t> findPlainly(std::string_view bytes) const;

 private:
  struct Needle {
    std::string text;
    // The two positions whose bytes are rarest in JSON. Where both match, the rest is compared.
    std::size_t first = 0;
    std::size_t second = 0;
  };

  bool matchesAt(std::string_view bytes, std::size_t offset) const;
  template <std::size_t count>
  std::optional<std::size_t> findWithVectors(std::string_view bytes) const;

  std::vector<Needle> needles_;
  std::size_t longest_ = 0;
};

}  // namespace tessivane
