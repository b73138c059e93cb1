#include "backup/utils/sql/union_sql.h"

#include <gtest/gtest.h>

#include "backup/utils/sql/select_sql.h"
#include "support/render.h"

TEST(Union_SQL, joins_its_members_and_appends_to_the_text) {
  Union_SQL both(2);
  both.add_select_sql()->table("a", nullptr).limit(1).and_filter()->add_kv_eq_item("x", 1);
  both.add_select_sql()->table("b", nullptr).and_filter()->add_kv_eq_item("x", 2);
  std::string text = "(before) ";
  Bindings bindings;
  EXPECT_EQ(both.get_sql(SQL::DB_MYSQL, text, bindings),
            "(before) SELECT * FROM `a` WHERE (`x`=:1) LIMIT 1 UNION SELECT * FROM `b` WHERE (`x`=:2)");
  EXPECT_TRUE(both.empty()) << "the base's notion: no text of its own";
  EXPECT_EQ(render_count(both), "SELECT COUNT() FROM ()");
  both.clear();
  EXPECT_EQ(render(both), "");
  Union_SQL all(3);
  all.add_select_sql();
  all.add_select_sql();
  EXPECT_EQ(render(all), "SELECT * UNION ALL SELECT *");
}
