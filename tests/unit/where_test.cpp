// The WHERE clause and DELETE.
#include "backup/utils/sql/where_sql.h"

#include <gtest/gtest.h>

#include "backup/utils/sql/delete_sql.h"
#include "support/render.h"

TEST(Where_SQL, raw_text_wins_over_the_filter) {
  Delete_SQL statement("t");
  Filter_SQL* const filter = statement.and_filter();
  EXPECT_EQ(render(statement), "DELETE FROM `t` WHERE 1");
  filter->add_kv_eq_item("a", 1);
  EXPECT_EQ(statement.and_filter(), filter);
  statement.where("b=2");
  EXPECT_EQ(render(statement), "DELETE FROM `t` WHERE b=2");
  statement.where("");
  EXPECT_EQ(render(statement), "DELETE FROM `t` WHERE (`a`=:1) {:1=1}");
  Delete_SQL const copy(statement);
  EXPECT_EQ(statement.or_filter()->filter_type(), Filter_SQL::FILTER_OR);
  EXPECT_EQ(render(statement), "DELETE FROM `t` WHERE 0") << "the AND filter is gone with its conditions";
  EXPECT_EQ(render(copy), "DELETE FROM `t` WHERE (`a`=:1) {:1=1}");
  std::string own = "c=3";
  static_cast<Where_SQL&>(statement).where(own.c_str(), true);
  own = "x";
  EXPECT_EQ(render(Delete_SQL(statement)), "DELETE FROM `t` WHERE c=3");
  std::string where = "replaced";
  Bindings bindings;
  unsigned long long index = 6;
  EXPECT_EQ(copy.get_where_sql(SQL::DB_MYSQL, where, bindings, index), " WHERE (`a`=:7)");
  statement.clear();
  EXPECT_EQ(render(statement), "DELETE FROM `t`") << "a cleared DELETE keeps its target";
  EXPECT_EQ(render(Delete_SQL(nullptr)), "DELETE FROM ``");
}
