#include "support/RegularExpression.h"

#include <string>

#include <gtest/gtest.h>

namespace tessivane {
namespace {

TEST(RegularExpressionTest, GivesPartsOfTheText) {
  const RegularExpression pattern("(\u00FC+)|(b)(c)?");
  const std::string text = "a \u00FC\u00FC b\xFF bc.";
  const auto first = pattern.firstMatch(text);
  ASSERT_TRUE(first);
  EXPECT_EQ(first->whole, "\u00FC\u00FC");
  EXPECT_EQ(first->rest.data(), text.data() + 6);
  EXPECT_EQ(first->group(1), "\u00FC\u00FC");
  EXPECT_EQ(first->group(2), std::nullopt);
  EXPECT_EQ(first->group(0), std::nullopt);
  EXPECT_EQ(first->group(4), std::nullopt);
  const auto last = pattern.lastMatch(text);
  EXPECT_EQ(last->whole, "bc");
  EXPECT_EQ(last->group(3), "c");
  EXPECT_EQ(last->rest, ".");
  EXPECT_FALSE(pattern.firstMatch({}));
  EXPECT_EQ(RegularExpression("x*").lastMatch("ax")->whole, "");
}

TEST(RegularExpressionTest, GivesUpOnWhatHasNoEnd) {
  EXPECT_FALSE(RegularExpression("(").firstMatch("("));
  // Tries each of 2^60 ways to divide the text.
  EXPECT_FALSE(RegularExpression("^(a+)+$").firstMatch(std::string(60, 'a') + "b"));
  // Remembers a way back for each character.
  EXPECT_FALSE(RegularExpression("(?:a|b)*c").firstMatch(std::string(4'000'000, 'a')));
}

}  // namespace
}  // namespace tessivane
