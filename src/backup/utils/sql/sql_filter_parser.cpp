#include "backup/utils/sql/sql_filter_parser.h"

#include <algorithm>
#include <boost/bind/bind.hpp>
#include <boost/function.hpp>
#include <limits>
#include <utility>

#include "backup/runtime/detail/block_stack.h"
#include "backup/runtime/uuid.h"
#include "backup/utils/sql/detail/add_condition.h"
#include "backup/utils/sql/detail/request_text.h"
#include "backup/utils/sql/detail/sql_log.h"
#include "backup/utils/sql/select_sql.h"
#include "backup/utils/sql/where_sql.h"

using backup::request_text::read_boolean;
using backup::request_text::read_integer;
using backup::request_text::read_list;
using json_spirit::Object;
using json_spirit::Value;

namespace {

constexpr char const* source_file = "src/backup/utils/sql/sql_filter_parser";

using Parser = SQL_Filter_Parser;
using Filter = Parser::Filter;
using Filters = Parser::Filters;
using Controls = Parser::Controls;
using Operand = backup::request_text::Operand;

// Appends the column of `key`.
void append_column(std::string& column, Filter const& filter, std::string_view key) {
  bool const is_name = filter.name_mode == Filter::COLUMN_IS_NAME;
  bool const is_name_dot_key = filter.name_mode == Filter::COLUMN_IS_NAME_DOT_KEY;
  if ((is_name || is_name_dot_key) && filter.name != nullptr) column += filter.name;
  if (is_name_dot_key) column += '.';
  if (is_name_dot_key || filter.name_mode == Filter::COLUMN_IS_KEY) column += key;
}

using Text_Setter = bool (Controls::*)(std::string const*);
using Number_Setter = bool (Controls::*)(long long const*);

// Turns the keys into columns. When no key has another column name, the text is kept byte for byte.
bool read_sort(Operand const& value, Controls* controls, Filters const* filters, Text_Setter set) {
  if (filters == nullptr || value.text == nullptr) return false;
  bool is_renamed = false;
  char const* comma = "";
  std::string columns;
  bool const is_allowed = read_list(*value.text, [&](std::string_view key) {
    Filter const& filter = Filters::find(filters, key.data(), key.size()).value;
    is_renamed =
        is_renamed || filter.name_mode == Filter::COLUMN_IS_NAME || filter.name_mode == Filter::COLUMN_IS_NAME_DOT_KEY;
    columns += comma;
    comma = ",";
    append_column(columns, filter, key);
    return filter.type != 0;
  });
  return is_allowed && (controls->*set)(is_renamed ? &columns : value.text);
}

bool read_text(Operand const& value, Controls* controls, Text_Setter set) {
  return value.text != nullptr && (controls->*set)(value.text);
}

// A JSON integer above the largest signed one becomes that one, as text does.
bool read_number(Operand const& value, Controls* controls, Number_Setter set) {
  constexpr long long largest = std::numeric_limits<long long>::max();
  long long number = 0;
  if (value.text != nullptr) {
    number = read_integer(*value.text);
  } else if (value.json->type() == json_spirit::int_type) {
    bool const is_larger = value.json->is_uint64() && value.json->get_uint64() > largest;
    number = is_larger ? largest : value.json->get_int64();
  } else {
    return false;
  }
  return (controls->*set)(&number);
}

template <std::string const* (Controls::*get)() const, Select_SQL& (Select_SQL::*set)(char const*)>
void apply_text(Controls const& controls, Select_SQL& select) {
  if (std::string const* const text = (controls.*get)()) (select.*set)(text->c_str());
}

template <long long const* (Controls::*get)() const, Select_SQL& (Select_SQL::*set)(long long)>
void apply_number(Controls const& controls, Select_SQL& select) {
  if (long long const* const number = (controls.*get)()) (select.*set)(*number);
}

Value convert_number(std::string const& text) { return read_integer(text); }

// How one control is read, applied and converted.
struct Control {
  Parser::Control_Kind kind;
  boost::function<bool(Operand const&, Controls*, Filters const*)> read;  // false, with nothing stored: unusable value
  void (*apply)(Controls const& controls, Select_SQL& select);            // does nothing when the control is not set
  Value (*convert)(std::string const& text);                              // null: like any other key
};

using namespace boost::placeholders;

// `control` applies them in this order: sort orders need the sort keys.
Key2_Value_T<Control> const control_table[] = {
    {"sort",
     4,
     {Parser::SORT_KEYS, boost::bind(&read_sort, _1, _2, _3, static_cast<Text_Setter>(&Controls::sort)),
      apply_text<&Controls::sort, &Select_SQL::sort_keys>, nullptr}},
    {"order",
     5,
     {Parser::SORT_ORDERS, boost::bind(&read_text, _1, _2, static_cast<Text_Setter>(&Controls::order)),
      apply_text<&Controls::order, &Select_SQL::sort_orders>, nullptr}},
    {"offset",
     6,
     {Parser::ROW_NUMBER, boost::bind(&read_number, _1, _2, static_cast<Number_Setter>(&Controls::offset)),
      apply_number<&Controls::offset, &Select_SQL::offset>, convert_number}},
    {"limit",
     5,
     {Parser::ROW_NUMBER, boost::bind(&read_number, _1, _2, static_cast<Number_Setter>(&Controls::limit)),
      apply_number<&Controls::limit, &Select_SQL::limit>, convert_number}},
    {nullptr, 0, {Parser::NO_CONTROL, {}, nullptr, nullptr}}};

Control const& control_of(std::string_view key) {
  return Key2_Value_T<Control>::find(control_table, key.data(), key.size()).value;
}

// The value of a text, by type. A uuid stays text.
Value typed_value(std::string_view text, unsigned int type) {
  if (type == Filter::TYPE_BOOL) return read_boolean(text);
  if (type == Filter::TYPE_INT) return read_integer(text);
  return std::string(text);
}

json_spirit::Array typed_list(std::string_view text, unsigned int type) {
  json_spirit::Array list;
  read_list(text, [&](std::string_view piece) {
    list.push_back(typed_value(piece, type));
    return true;
  });
  return list;
}

bool is_uuid(Value const& value) { return value.type() == json_spirit::str_type && is_valid_uuid(value.get_str()); }

// Makes the value that is compared with a column of `type`. False when `value` does not fit the type.
bool to_binding(Operand const& value, unsigned int type, Binding_Value& binding) {
  switch (type) {
    case Filter::TYPE_BOOL:
    case Filter::TYPE_INT: {
      json_spirit::Value_type const kind = type == Filter::TYPE_BOOL ? json_spirit::bool_type : json_spirit::int_type;
      if (value.text == nullptr && value.json->type() != kind) return false;
      binding = value.text != nullptr ? typed_value(*value.text, type) : *value.json;
      return true;
    }
    case Filter::TYPE_UUID:
      if (value.text == nullptr || !is_valid_uuid(*value.text)) return false;
      binding = uuid_string_to_binary(*value.text);
      return true;
    default: binding = value.text != nullptr ? Binding_Value(*value.text) : Binding_Value(*value.json); return true;
  }
}

// Adds IN or NOT IN.
bool add_list_condition(Filter_SQL& target, std::string const& column, Operand const& value, unsigned int type,
                        bool in) {
  json_spirit::Array pieces;
  json_spirit::Array const* list = &pieces;
  if (value.text != nullptr) {
    pieces = typed_list(*value.text, type);
  } else if (value.json->type() == json_spirit::array_type) {
    list = &value.json->get_array();
  } else {
    sql_log::report({source_file}, LM_ERROR, 0, "Invalid filter value type '%d'.\n",
                    static_cast<int>(value.json->type()));
    return false;
  }
  bool const uuids = type == Filter::TYPE_UUID;
  if (uuids && !std::all_of(list->begin(), list->end(), is_uuid)) return false;
  backup::add_set_condition(target, column, *list, in, uuids);
  return true;
}

Filter_SQL* add_group(std::string const& key, Filter_SQL* target) {
  Filter_SQL* const group = target->add_filter(*Filter_SQL::type_of_name(key));
  backup::require_added(group);
  return group;
}

void report_failure(std::string const& key, std::string const& value, int line = __builtin_LINE()) {
  sql_log::report({source_file, line}, LM_ERROR, -1, "Failed to handle filter: key='%s', value='%s'.\n", key, value);
}

std::string value_text(Value const& value) {
  json_spirit::JSON_Dump const json(value, false);
  return std::string(json.c_str(), json.size());
}

}  // namespace

SQL_Filter_Parser::Controls::Controls() = default;

template <class T>
bool SQL_Filter_Parser::Controls::store(unsigned int control, T& field, T const* value) {
  if (value != nullptr) {
    field = *value;
    set_ |= control;
  } else {
    set_ &= ~control;
  }
  return true;
}

template <class T>
T const* SQL_Filter_Parser::Controls::stored(unsigned int control, T const& field) const {
  return (set_ & control) != 0 ? &field : nullptr;
}

bool SQL_Filter_Parser::Controls::sort(std::string const* keys) { return store(SORT, sort_, keys); }
bool SQL_Filter_Parser::Controls::order(std::string const* directions) { return store(ORDER, order_, directions); }
bool SQL_Filter_Parser::Controls::offset(long long const* rows) { return store(OFFSET, offset_, rows); }
bool SQL_Filter_Parser::Controls::limit(long long const* rows) { return store(LIMIT, limit_, rows); }
std::string const* SQL_Filter_Parser::Controls::sort() const { return stored(SORT, sort_); }
std::string const* SQL_Filter_Parser::Controls::order() const { return stored(ORDER, order_); }
long long const* SQL_Filter_Parser::Controls::offset() const { return stored(OFFSET, offset_); }
long long const* SQL_Filter_Parser::Controls::limit() const { return stored(LIMIT, limit_); }
void SQL_Filter_Parser::Controls::clear() { set_ = 0; }

SQL_Filter_Parser::SQL_Filter_Parser() : filter_(nullptr), filters_(nullptr) {}
SQL_Filter_Parser::SQL_Filter_Parser(Where_SQL& where, Filters const* filters)
    : filter_(where.and_filter()), filters_(filters) {}
SQL_Filter_Parser::SQL_Filter_Parser(Filter_SQL* filter, Filters const* filters) : filter_(filter), filters_(filters) {}
SQL_Filter_Parser::SQL_Filter_Parser(Filters const* filters) : filter_(nullptr), filters_(filters) {}

SQL_Filter_Parser::Controls const& SQL_Filter_Parser::controls() const { return controls_; }

void SQL_Filter_Parser::start(unsigned int flags) {
  if ((flags & accumulate) != 0) return;
  if (filter_ != nullptr) filter_->clear();
  controls_.clear();
}

bool SQL_Filter_Parser::parse(std::map<std::string, std::string> const& params, unsigned int flags) {
  start(flags);
  Read_Allowance allowance;
  for (auto const& [key, value] : params) {
    if (!parse_pair(key, value, allowance)) report_failure(key, value);
  }
  return true;
}

bool SQL_Filter_Parser::parse(Object const& params, unsigned int flags) {
  start(flags);
  Read_Allowance allowance;
  for (auto const& [key, value] : params) {
    if (!parse_pair(key, value, allowance)) report_failure(key, value_text(value));
  }
  return true;
}

// Takes a pair as a control, else as a condition. False when a condition fails.
bool SQL_Filter_Parser::parse_pair(std::string const& key, Operand const& value, Read_Allowance& allowance) {
  if (parse_control(key, value)) return true;
  return filter_ == nullptr || filters_ == nullptr || parse_filter(key, value, filter_, allowance);
}

SQL_Filter_Parser::Control_Kind SQL_Filter_Parser::control_kind(std::string_view key) { return control_of(key).kind; }

bool SQL_Filter_Parser::parse_control_i(std::string const& key, Value const& value) {
  return parse_control(key, value);
}

bool SQL_Filter_Parser::parse_control(std::string const& key, Operand const& value) {
  Control const& control = control_of(key);
  return control.read && control.read(value, &controls_, filters_);
}

bool SQL_Filter_Parser::parse_filter_i(std::string const& key, Value const& value, Filter_SQL* target) {
  Read_Allowance allowance;
  return parse_filter(key, value, target, allowance);
}

bool SQL_Filter_Parser::parse_filter(std::string const& key, Operand const& value, Filter_SQL* target,
                                     Read_Allowance& allowance) {
  struct Level {
    Object::const_iterator next;
    Object::const_iterator end;
    Filter_SQL* target;
  };
  backup::Block_Stack<Level> levels;
  // Handles one pair. The loop below handles the members of an object.
  auto const handle = [&](std::string const& name, Operand const& operand, Filter_SQL* filter) {
    if (!backup::request_text::is_group(name)) return parse_condition(name, operand, *filter);
    Filter_SQL* const group = add_group(name, filter);
    if (operand.text != nullptr) {
      auto const add = [this](std::string const& k, std::string const& v, Filter_SQL* f) {
        return parse_condition(k, v, *f);
      };
      return backup::request_text::walk_query_string(*operand.text, group, allowance, add, add_group);
    }
    if (operand.json->type() == json_spirit::obj_type) {
      levels.push({operand.json->get_obj().begin(), operand.json->get_obj().end(), group});
      return true;
    }
    sql_log::report({source_file}, LM_ERROR, 0, "Invalid AND/OR filter value type '%d'.\n",
                    static_cast<int>(operand.json->type()));
    return false;
  };
  if (target == nullptr || !handle(key, value, target)) return false;
  while (!levels.empty()) {
    Level& level = levels.top();
    if (level.next == level.end) {
      levels.pop();
      continue;
    }
    auto const& [name, operand] = *level.next++;
    if (!handle(name, operand, level.target)) return false;
  }
  return true;
}

// Adds one condition. Also true for a key that the table lacks, which adds none.
bool SQL_Filter_Parser::parse_condition(std::string const& key, Operand const& value, Filter_SQL& target) const {
  auto const [op, plain_key, filter] = allowed(key);
  if (filter.type == 0) return true;
  std::string column;
  append_column(column, filter, plain_key);
  switch (op) {
    case Item_SQL::OP_NL: backup::require_added(target.add_null_item(column)); return true;
    case Item_SQL::OP_NN: backup::require_added(target.add_not_null_item(column)); return true;
    case Item_SQL::OP_IN: return add_list_condition(target, column, value, filter.type, true);
    case Item_SQL::OP_NI: return add_list_condition(target, column, value, filter.type, false);
    default: break;
  }
  Binding_Value binding;
  if (!to_binding(value, filter.type, binding)) return false;
  bool const lower = (filter.flags & Filter::FLAG_LOWER_CASE) != 0;
  backup::require_added(
      target.add_kv_item(op, column, std::move(binding), lower ? Filter_SQL::lower_case : Filter_SQL::no_flags));
  return true;
}

Item_SQL::Item_Op SQL_Filter_Parser::parse_op_key(std::string const& key, unsigned long long* prefix_length) const {
  Item_SQL::Item_Op op = Item_SQL::OP_NONE;
  if (key.size() > 2 && key[2] == '_') op = Item_SQL::op_name_to_value(key.c_str(), 2);
  if (op == Item_SQL::OP_NONE) return Item_SQL::OP_EQ;
  if (prefix_length != nullptr) *prefix_length = 3;
  return op;
}

SQL_Filter_Parser::Allowed_Key SQL_Filter_Parser::allowed(std::string const& key) const {
  static constexpr Filters none[] = {{nullptr, 0, {nullptr, 0, 0, 0}}};
  unsigned long long prefix = 0;
  Item_SQL::Item_Op const op = parse_op_key(key, &prefix);
  std::string_view const plain_key = std::string_view(key).substr(prefix);
  Filters const* const table = filters_ == nullptr ? none : filters_;
  return {op, plain_key, Filters::find(table, plain_key.data(), plain_key.size()).value};
}

bool SQL_Filter_Parser::control(Select_SQL& select) const {
  for (auto const* control = control_table; control->key != nullptr; ++control) control->value.apply(controls_, select);
  return true;
}

Object SQL_Filter_Parser::convert_qs_to_params(std::map<std::string, std::string> const& params) const {
  Object object;
  Read_Allowance allowance;
  for (auto const& [key, value] : params) {
    Control const& control = control_of(key);
    if (control.convert != nullptr) {
      object[key] = control.convert(value);
    } else if (!convert_pair(key, value, object, allowance)) {
      report_failure(key, value);
    }
  }
  return object;
}

bool SQL_Filter_Parser::convert_kv_to_params(std::string const& key, std::string const& value, Object& params) const {
  Read_Allowance allowance;
  return convert_pair(key, value, params, allowance);
}

bool SQL_Filter_Parser::convert_pair(std::string const& key, std::string const& value, Object& params,
                                     Read_Allowance& allowance) const {
  auto const convert = [this](std::string const& k, std::string const& v, Object* object) {
    (*object)[k] = convert_value(k, v);
    return true;
  };
  auto const open = [](std::string const& k, Object* object) {
    Value& group = (*object)[k];
    group = Object();
    return &group.get_obj();
  };
  if (!backup::request_text::is_group(key)) return convert(key, value, &params);
  // A copy: `value` may be the text of the member that becomes the group.
  std::string const members = value;  // NOLINT(performance-unnecessary-copy-initialization)
  return backup::request_text::walk_query_string(members, open(key, &params), allowance, convert, open);
}

// The JSON value of one pair. The table gives its type.
Value SQL_Filter_Parser::convert_value(std::string const& key, std::string const& text) const {
  Allowed_Key const allowed_key = allowed(key);
  Item_SQL::Item_Op const op = allowed_key.op;
  unsigned int const type = allowed_key.filter.type;
  if (type == 0) return text;
  if (op == Item_SQL::OP_NL || op == Item_SQL::OP_NN) return {};
  if (op == Item_SQL::OP_IN || op == Item_SQL::OP_NI) return typed_list(text, type);
  return typed_value(text, type);
}
