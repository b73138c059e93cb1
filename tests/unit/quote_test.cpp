#include "backup/utils/sql/quote.h"

#include <gtest/gtest.h>

#include <utility>

TEST(Quote, doubles_single_quotes_and_nothing_else) {
  std::pair<char const*, char const*> const cases[] = {
      {nullptr, ""},       {"", "''"},          {"abc", "'abc'"},       {"O'Brien", "'O''Brien'"},
      {"'''", "''''''''"}, {"a\\'", "'a\\'''"}, {"\n\t\"", "'\n\t\"'"}, {"end'", "'end'''"}};
  for (auto const& [text, literal] : cases) {
    EXPECT_EQ(Quote(text).str(), literal);
    std::string buffer = "x";
    EXPECT_EQ(Quote(text, buffer).str(), std::string("x") + literal) << "appends to the caller's buffer";
    EXPECT_EQ(buffer, "") << "which it takes";
  }
  std::string const zero("a\0'", 3);
  EXPECT_EQ(Quote(zero).str(), std::string("'a\0'''", 6));
}

TEST(escape_like, escapes_the_escape_first) {
  std::pair<char const*, char const*> const cases[] = {{"", ""},        {"100%", "100|%"}, {"a|b", "a||b"},
                                                       {"a_b", "a|_b"}, {"|_%", "|||_|%"}, {"\\[x]", "\\[x]"}};
  for (auto const& [text, escaped] : cases) EXPECT_EQ(escape_like(text), escaped);
}
