#include "support/Text.h"

#include <array>
#include <tuple>

#include <gtest/gtest.h>

namespace tessivane {
namespace {

const std::string family = "👨‍👩‍👧‍👦";
const std::string accented = "e\u0301";  // two code points

TEST(TextTest, CutsBetweenCharactersAsAPersonSeesThem) {
  const std::tuple<std::string, std::size_t, std::string> rows[] = {
      {"", 5, ""},
      {"é", 0, ""},
      {std::string("a\0bc", 4), 3, std::string("a\0b", 3)},
      {family + family + "x", 1, family},
      {family + "👍🏽x", 2, family + "👍🏽"},
      {"🇫🇷🇩🇪🇪🇸", 2, "🇫🇷🇩🇪"},
      // The mark stands right behind the cut, or belongs to what is cut off.
      {"ab" + accented + "x", 3, "ab" + accented},
      {"ab" + accented + "x", 2, "ab"},
      {"ab\r\n", 3, "ab\r\n"},
      {"a\r\nb", 2, "a\r\n"},
      {"\n\rx", 2, "\n\r"},
      {"\xFF\xFFzz", 3, "\xFF\xFFz"},
      {std::string(199, 'x') + family + "y", 200, std::string(199, 'x') + family}};
  for (const auto& [text, count, expected] : rows)
    EXPECT_EQ(prefixCharacters(text, count), expected) << text << " " << count;
}

TEST(TextTest, TrimsAndCollapsesUnicodeSpace) {
  // The text, trimmed, collapsed.
  const std::array<std::string, 3> rows[] = {
      {" \t\r\n\v\f\u00A0\u3000\u2028\u2029\u0085\u202F", "", ""},
      {"\u00A0é \r\n\t\u2003b\u00A0", "é \r\n\t\u2003b", "é b"},
      {"\u200Ba\uFEFF", "\u200Ba\uFEFF", "\u200Ba\uFEFF"},  // no white space, though unseen
      {" \xE3\x80 x \x80\x80", "\xE3\x80 x \x80\x80", "\xE3\x80 x \x80\x80"},
      {"a\u3000\xFF", "a\u3000\xFF", "a \xFF"},
      {std::string(" \0 ", 3), std::string(1, '\0'), std::string(1, '\0')}};
  for (const auto& [text, withoutEnds, collapsed] : rows) {
    EXPECT_EQ(trimmed(text), withoutEnds) << text;
    EXPECT_EQ(collapsedWhitespace(text), collapsed) << text;
  }
}

TEST(TextTest, RepairsWhatIsIllFormed) {
  const std::pair<std::string, std::string> rows[] = {
      {"a\xFFz\x80", "a\uFFFDz\uFFFD"},
      {"\xC0\x80", "\uFFFD\uFFFD"},            // overlong
      {"\xED\xA0\x80", "\uFFFD\uFFFD\uFFFD"},  // a surrogate
      {"\xF4\x90\x80\x80", "\uFFFD\uFFFD\uFFFD\uFFFD"},
      {"\xE2\x82x\xF0\x9F\x98\u00E9\xE2\x82", "\uFFFDx\uFFFDé\uFFFD"}};  // cut off
  for (const auto& [text, expected] : rows) {
    EXPECT_EQ(repairedUTF8(text), expected) << text;
    EXPECT_TRUE(!isValidUTF8(text) && isValidUTF8(expected)) << text;
  }
  for (const std::string text : {"", "aé€😀", "\uD7FF\uE000\uFFFF", "\U0010FFFF"})
    EXPECT_EQ(repairedUTF8(text), text);
}

}  // namespace
}  // namespace tessivane
