#include "sessions/ProviderCache.h"

#include <gtest/gtest.h>

namespace tessivane {
namespace {

TEST(ProviderCacheText, takesTheFirstLineThatHoldsSomething) {
  struct Row {
    std::string_view text;
    std::size_t maximum;
    std::optional<std::string_view> line;
  };
  for (const Row& row : std::initializer_list<Row>{{"", 9, {}},
                                                   {"\r\n\n\r", 9, {}},
                                                   {"abc", 0, {}},
                                                   {"\r\n\nabc\rdef", 9, "abc"},
                                                   {"abc\r\ndef", 9, "abc"},
                                                   {" \nabc", 9, " "},
                                                   {"abcdef", 3, "abc"},
                                                   {"e\u0301e\u0301", 1, "e\u0301"}}) {
    EXPECT_EQ(ProviderCacheText::firstLine(row.text, row.maximum), row.line) << row.text;
  }
}

TEST(ProviderCacheMemo, answersOnlyForAnEqualStampAndForgetsWhatIsGone) {
  ProviderCacheMemo<ProviderCacheTextStamp, int> memo;
  memo.store("a", {"\u00E9"}, 1);
  memo.store("b", {"x"}, 2);
  EXPECT_EQ(memo.cached("a", {"e\u0301"}), nullptr);
  ASSERT_NE(memo.cached("a", {"\u00E9"}), nullptr);
  memo.prune({"a", "c"});  // as many keys as entries: nothing to do
  EXPECT_EQ(memo.size(), 2U);
  memo.prune({"a"});
  EXPECT_EQ(memo.cached("b", {"x"}), nullptr);
  EXPECT_EQ(*memo.cached("a", {"\u00E9"}), 1);
}

TEST(ProviderCacheDates, staysBounded) {
  ProviderCacheDates dates;
  EXPECT_EQ(dates.date("no date"), std::nullopt);
  for (std::size_t i = 0; i < 2 * ProviderCacheDates::limit; ++i)
    dates.date(std::to_string(i));
  EXPECT_EQ(dates.date("2026-10-05T12:00:00Z"), isoDate("2026-10-05T12:00:00Z"));
}

}  // namespace
}  // namespace tessivane
