// A filter document as JSON text.
#include <ace/ACE.h>

#include <utility>

#include "backup/utils/sql/filter_sql.h"
#include "backup/utils/sql/json_filter_helpers.h"
#include "fuzz.h"

using json_spirit::Object;
using json_spirit::Value;

namespace {

std::pair<std::string, Bindings> render(Object const& document) {
  And_Filter_SQL filter;
  generate_filter_from_obj(document, filter);
  std::pair<std::string, Bindings> rendered;
  filter.get_sql(SQL::DB_SQLITE, rendered.first, rendered.second);
  return rendered;
}

// The operand of each item with a column and an operator must be bound in text order, unless it is a list.
void check_bindings(Bindings const& bindings, Value const& document) {
  std::size_t count = 0;
  for (std::vector<Value const*> waiting = {&document}; !waiting.empty();) {
    Value const& member = *waiting.back();
    waiting.pop_back();
    if (member.type() != json_spirit::obj_type) continue;
    std::string op;
    std::string const* const key = item_get_key(member.get_obj());
    Value const* const operand = item_get_value(member.get_obj());
    if (!item_get_op(member.get_obj(), op) || operand == nullptr) continue;
    if (operand->type() == json_spirit::array_type) {
      json_spirit::Array const& list = operand->get_array();
      for (std::size_t i = op == "AND" || op == "OR" ? list.size() : 0; i > 0; --i) waiting.push_back(&list[i - 1]);
    } else if (key != nullptr && key->find_first_not_of('.') != std::string::npos &&
               is_one_of(op, " EQ NE LT LE GT GE IN NI LK NK ")) {
      Binding_Value const& bound = bindings.at(':' + std::to_string(++count));
      bool const is_uuid_key = is_one_of(*key, " uuid uid incarnation ") ||
                               (key->size() >= 5 && key->compare(key->size() - 5, 5, "_uuid") == 0);
      bool const is_uuid = is_uuid_key && operand->type() == json_spirit::str_type;
      require(is_uuid ? bound.type() == Binding_Value::bin_type : bound == Binding_Value(*operand),
              "it is bound as it is");
    }
  }
  require(count == bindings.size(), "nothing else is bound");
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(std::uint8_t const* data, std::size_t size) {
  Value document;
  json_spirit::Read_Error error;
  json_spirit::read_string({data, data + size}, document, error);
  if (document.type() != json_spirit::obj_type) return 0;
  ACE::debug(true);  // the statements and values are made into log records too
  auto const rendered = render(document.get_obj());
  check_bindings(rendered.second, document);
  Object group;
  require(generate_or_filter(group) && filter_add_item(group, document), "a group takes any member");
  std::string const wanted = rendered.first == "1" ? "(0)" : '(' + rendered.first + ')';
  require(render(group) == std::make_pair(wanted, rendered.second), "a group of one makes the same conditions");
  return 0;
}
