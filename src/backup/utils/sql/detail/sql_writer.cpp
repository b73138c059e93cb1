#include "backup/utils/sql/detail/sql_writer.h"

#include <array>
#include <charconv>
#include <typeinfo>

#include "backup/utils/sql/detail/sql_text.h"
#include "backup/utils/sql/filter_sql.h"
#include "backup/utils/sql/item_sql.h"
#include "backup/utils/sql/select_sql.h"
#include "backup/utils/sql/union_sql.h"

namespace {

// 20 digits for the largest number, and a sign or a colon.
using Number = std::array<char, 21>;

}  // namespace

SQL_Writer& SQL_Writer::operator<<(long long number) {
  Number digits;
  sql_.append(digits.data(), std::to_chars(digits.data(), digits.data() + digits.size(), number).ptr);
  return *this;
}

void SQL_Writer::name(char const* name) {
  sql_ += '`';
  if (name != nullptr) sql_ += name;
  sql_ += '`';
}

void SQL_Writer::name(std::string const& name) {
  sql_ += '`';
  sql_ += name;
  sql_ += '`';
}

void SQL_Writer::alias(char const* alias) {
  if (!is_set(alias)) return;
  sql_ += ' ';
  name(alias);
}

void SQL_Writer::param(Binding_Value const& value) {
  Number buffer;
  buffer[0] = ':';
  char* const end = std::to_chars(buffer.data() + 1, buffer.data() + buffer.size(), ++index_).ptr;
  sql_.append(buffer.data(), end);
  bindings_.insert_or_assign(std::string(buffer.data(), end), value);
}

// The classes that statements are nested in append to this writer's text. Anything else, a caller's subclass that
// renders its own way included, gets a text of its own, as the contract of get_sql_i has it: hence the comparison of
// exact types.
void SQL_Writer::part(SQL const& part) {
  struct Own_Class {
    std::type_info const* type;
    void (*write)(SQL const&, SQL_Writer&);
  };
  static Own_Class const own_classes[] = {
      {&typeid(KV_Item_SQL), write<KV_Item_SQL>},
      {&typeid(In_Item_SQL), write<In_Item_SQL>},
      {&typeid(Select_SQL), write<Select_SQL>},
      {&typeid(SQL), write<SQL>},
      {&typeid(Null_Item_SQL), write<Null_Item_SQL>},
      {&typeid(Key_UUID_Item_SQL), write<Key_UUID_Item_SQL>},
      {&typeid(Key_SQL_Item_SQL), write<Key_SQL_Item_SQL>},
      {&typeid(Val_SQL_Item_SQL), write<Val_SQL_Item_SQL>},
      {&typeid(Union_SQL), write<Union_SQL>},
  };
  std::type_info const& type = typeid(part);
  for (Own_Class const& own : own_classes) {
    if (*own.type != type) continue;
    own.write(part, *this);
    merge_bindings(part);
    return;
  }
  if (Filter_SQL const* const filter = Filter_SQL::plain_filter(part)) {
    filter->write_sql(*this);
    merge_bindings(part);
    return;
  }
  scratch_.clear();
  sql_ += part.get_sql(db_, scratch_, bindings_, index_);
}

void SQL_Writer::sub_statement(SQL const& statement) {
  sql_ += '(';
  part(statement);
  sql_ += ')';
}

void SQL_Writer::value(SQL_Value const& value) {
  if (value.sql() != nullptr) {
    sub_statement(*value.sql());
  } else {
    param(value.val());
  }
}
