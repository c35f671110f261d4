#include "support/ByteSearch.h"

#include <algorithm>
#include <random>

#include <gtest/gtest.h>

namespace tessivane {
namespace {

using Needles = std::initializer_list<std::string_view>;

// Short alphabets, so that half of a needle and needles within needles are frequent. One needle is
// longer than a vector register.
const Needles sets[] = {{},
                        {"\"a"},
                        {"aa", "ab_"},
                        {"aab", "b\"a\"", "_:"},
                        {"aaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaaa\"b", "bbbb", "\"\"", ":a"},
                        {"b_b", "aaab", "::\"", "a:a", "_\xFF_"},
                        {"a_", "_a", "b_", "_b", ":_", "_:"},
                        {"aaaaa", "aaaab", "abaaa", "bb", "b:b", "::", "_\xFF"},
                        {"a:a", "b:b", "_:_", "a_b", "b_a", "bab", "\"_\"", "\"a\":\"b\""}};

// The text stands in a block of just its size, so that a look past its end is noticed.
void expectSame(const Needles& needles, const NeedleSet& set, const std::string& text) {
  std::size_t first = std::string::npos;
  for (const auto needle : needles)
    first = std::min(first, text.find(needle));
  const auto expected = first == std::string::npos ? std::nullopt : std::optional(first);
  const std::vector<char> bytes(text.begin(), text.end());
  const std::string_view view(bytes.data(), bytes.size());
  ASSERT_EQ(set.find(view), expected) << needles.size() << " in " << text;
  ASSERT_EQ(set.findPlainly(view), expected) << needles.size() << " in " << text;
}

TEST(ByteSearchTest, AgreesWithASimpleSearch) {
  std::mt19937 random(20261005);
  const std::string_view alphabet = "ab\":_\xFF..............";
  for (const auto& needles : sets) {
    const NeedleSet set(needles);
    for (const auto needle : needles) {
      for (std::size_t n = 0; n < 600; ++n) {
        const std::string before(n % 100, '.');
        expectSame(needles, set, before + std::string(needle) + std::string(n / 100 * 31 / 2, '.'));
      }
    }
    for (unsigned i = 0; i < 2000; ++i) {
      std::string text(random() % 260, '.');
      for (char& c : text)
        c = alphabet[random() % (i % 2 == 0 ? 6 : alphabet.size())];
      expectSame(needles, set, text);
    }
  }
}

TEST(ByteSearchTest, LeavesOutNeedlesThatAreTooShortOrTooMany) {
  const NeedleSet set{"x", "", "11", "22", "33", "44", "55", "66", "77", "88", "99"};
  EXPECT_EQ(set.find("x9988"), 3U);
}

}  // namespace
}  // namespace tessivane
