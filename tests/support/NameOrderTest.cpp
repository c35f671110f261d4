#include "support/NameOrder.h"

#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace tessivane {
namespace {

// Only what holds in every language that these tests may run in.
TEST(NameOrder, ReadsAsAPersonDoes) {
  const std::vector<std::string> sorted = {
      "", "9 lives", "10 downing street", "cafe", "café", "cafes", "v9", "V9", "v10", "v010b"};
  for (std::size_t i = 0; i < sorted.size(); ++i) {
    for (std::size_t k = 0; k < sorted.size(); ++k) {
      EXPECT_EQ(std::is_lt(compareNames(sorted[i], sorted[k])), i < k)
          << sorted[i] << "|" << sorted[k];
      EXPECT_EQ(std::is_eq(compareNames(sorted[i], sorted[k])), i == k);
    }
  }
  EXPECT_TRUE(std::is_eq(compareNames("\xFFz", "\uFFFDz")));
}

}  // namespace
}  // namespace tessivane
