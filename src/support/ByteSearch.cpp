#include "support/ByteSearch.h"

#if defined(__x86_64__)
#include <immintrin.h>
#endif

#include <algorithm>
#include <array>
#include <cstdint>

namespace tessivane {

namespace {

// How common a byte is in JSON written by the agents, roughly: the rarer, the fewer false alarms.
int commonness(char c) {
  if (c == '"')
    return 9;
  if (c >= 'a' && c <= 'z')
    return std::string_view("etaoinsrlcdu").find(c) < 12 ? 8 : 6;
  if (c >= '0' && c <= '9')
    return 7;
  if (c == ':' || c == ',' || c == ' ')
    return 8;
  if (c == '_' || c == '-')
    return 4;
  return 2;
}

}  // namespace

NeedleSet::NeedleSet(std::initializer_list<std::string_view> needles) {
  for (const std::string_view text : needles) {
    if (text.size() < 2 || needles_.size() == maxNeedles)
      continue;
    std::vector<std::size_t> order(text.size());
    for (std::size_t i = 0; i < order.size(); ++i)
      order[i] = i;
    std::stable_sort(order.begin(), order.end(), [text](std::size_t a, std::size_t b) {
      return commonness(text[a]) < commonness(text[b]);
    });
    needles_.push_back({.text = std::string(text), .first = order[0], .second = order[1]});
    longest_ = std::max(longest_, text.size());
  }
}

bool NeedleSet::matchesAt(std::string_view bytes, std::size_t offset) const {
  const std::string_view rest = bytes.substr(offset);
  return std::any_of(needles_.begin(), needles_.end(), [rest](const Needle& needle) {
    return rest.starts_with(needle.text);
  });
}

std::optional<std::size_t> NeedleSet::findPlainly(std::string_view bytes) const {
  std::size_t earliest = std::string_view::npos;
  for (const Needle& needle : needles_) {
    // An occurrence behind the earliest one found so far is of no interest.
    const auto limit =
        earliest == std::string_view::npos ? bytes : bytes.substr(0, earliest + longest_);
    earliest = std::min(earliest, limit.find(needle.text));
  }
  if (earliest == std::string_view::npos)
    return std::nullopt;
  return earliest;
}

#if defined(__x86_64__)

namespace {

constexpr std::size_t vectorWidth = 32;

}  // namespace

// Compares two bytes of every needle at 32 offsets at a time. The loop holds no call, so that the
// compared bytes stay in registers; what looks like a hit is compared whole outside of it.
template <std::size_t count>
__attribute__((target("avx2"))) std::optional<std::size_t> NeedleSet::findWithVectors(
    std::string_view bytes) const {
  __m256i firstBytes[count];   // NOLINT(modernize-avoid-c-arrays): std::array drops its alignment
  __m256i secondBytes[count];  // NOLINT(modernize-avoid-c-arrays)
  std::array<const char*, count> firstAt{};
  std::array<const char*, count> secondAt{};
  for (std::size_t n = 0; n < count; ++n) {
    const Needle& needle = needles_[n];
    firstBytes[n] = _mm256_set1_epi8(needle.text[needle.first]);
    secondBytes[n] = _mm256_set1_epi8(needle.text[needle.second]);
    firstAt[n] = bytes.data() + needle.first;
    secondAt[n] = bytes.data() + needle.second;
  }
  std::size_t offset = 0;
  while (offset + vectorWidth + longest_ <= bytes.size()) {
    __m256i hits = _mm256_setzero_si256();
// Without it the compilers keep a loop here, and what is compared in memory.
#pragma GCC unroll 8
    for (std::size_t n = 0; n < count; ++n) {
      const auto* first = reinterpret_cast<const __m256i*>(firstAt[n] + offset);
      const auto* second = reinterpret_cast<const __m256i*>(secondAt[n] + offset);
      hits = _mm256_or_si256(
          hits,
          _mm256_and_si256(_mm256_cmpeq_epi8(_mm256_loadu_si256(first), firstBytes[n]),
                           _mm256_cmpeq_epi8(_mm256_loadu_si256(second), secondBytes[n])));
    }
    auto mask = static_cast<std::uint32_t>(_mm256_movemask_epi8(hits));
    while (mask != 0) {
      const auto candidate = offset + static_cast<std::size_t>(__builtin_ctz(mask));
      if (matchesAt(bytes, candidate))
        return candidate;
      mask &= mask - 1;
    }
    offset += vectorWidth;
  }
  const auto rest = findPlainly(bytes.substr(offset));
  if (!rest)
    return std::nullopt;
  return offset + *rest;
}

std::optional<std::size_t> NeedleSet::find(std::string_view bytes) const {
  static const bool vectors = __builtin_cpu_supports("avx2") != 0;
  if (!vectors || bytes.size() < vectorWidth + longest_)
    return findPlainly(bytes);
  switch (needles_.size()) {
    case 0:
      return std::nullopt;
    case 1:
      return findWithVectors<1>(bytes);
    case 2:
      return findWithVectors<2>(bytes);
    case 3:
      return findWithVectors<3>(bytes);
    case 4:
      return findWithVectors<4>(bytes);
    case 5:
      return findWithVectors<5>(bytes);
    case 6:
      return findWithVectors<6>(bytes);
    case 7:
      return findWithVectors<7>(bytes);
    default:
      return findWithVectors<8>(bytes);
  }
}

#else

std::optional<std::size_t> NeedleSet::find(std::string_view bytes) const {
  return findPlainly(bytes);
}

#endif

}  // namespace tessivane
