#include "backup/utils/sql/sql_filter_parser.h"

#include <algorithm>
#include <boost/algorithm/string/join.hpp>
#include <boost/bind/bind.hpp>
#include <boost/function.hpp>
#include <limits>
#include <utility>
#include <vector>

#include "backup/runtime/detail/block_stack.h"
#include "backup/runtime/uuid.h"
#include "backup/utils/sql/detail/request_text.h"
#include "backup/utils/sql/detail/set_condition.h"
#include "backup/utils/sql/detail/sql_log.h"
#include "backup/utils/sql/select_sql.h"
#include "backup/utils/sql/where_sql.h"

using json_spirit::Object;
using json_spirit::Value;

namespace {

constexpr char const* source_file = "src/backup/utils/sql/sql_filter_parser";
constexpr unsigned int accumulate_flag = 1;
constexpr unsigned int lower_flag = 1;  // of Filter_SQL::add_kv_item

using Filter = SQL_Filter_Parser::Filter;
using Filters = SQL_Filter_Parser::Filters;
using Controls = SQL_Filter_Parser::Controls;
using Text_Setter = bool (Controls::*)(std::string const*);
using Integer_Setter = bool (Controls::*)(long long const*);

// A JSON integer as a signed one; an unsigned one beyond that saturates, as text does.
long long to_signed(Value const& value) {
  constexpr long long largest = std::numeric_limits<long long>::max();
  if (!value.is_uint64()) return value.get_int64();
  return value.get_uint64() > static_cast<unsigned long long>(largest) ? largest
                                                                       : static_cast<long long>(value.get_uint64());
}

std::string column_of(Filter const& filter, std::string const& key) {
  std::string name = filter.name == nullptr ? "" : filter.name;
  switch (filter.name_mode) {
    case Filter::COLUMN_IS_KEY: return key;
    case Filter::COLUMN_IS_NAME: return name;
    case Filter::COLUMN_IS_NAME_DOT_KEY: return name + '.' + key;
    default: return {};
  }
}

bool handle_text(Value const& value, Controls* controls, Text_Setter set) {
  return value.type() == json_spirit::str_type && (controls->*set)(&value.get_str());
}

bool handle_integer(Value const& value, Controls* controls, Integer_Setter set) {
  long long number = 0;
  if (value.type() == json_spirit::str_type) {
    number = request_text::read_integer(value.get_str());
  } else if (value.type() == json_spirit::int_type) {
    number = to_signed(value);
  } else {
    return false;
  }
  return (controls->*set)(&number);
}

// Maps the pieces to columns. Where none is renamed, the text is kept exactly as it came.
bool handle_sort(Value const& value, Controls* controls, Filters const* filters, Text_Setter set) {
  if (filters == nullptr || value.type() != json_spirit::str_type) return false;
  bool is_renamed = false;
  std::vector<std::string> columns;
  for (std::string const& piece : request_text::read_list(value.get_str())) {
    Filter const& filter = Filters::find(filters, piece.c_str(), piece.size()).value;
    if (filter.type == 0) return false;
    is_renamed =
        is_renamed || filter.name_mode == Filter::COLUMN_IS_NAME || filter.name_mode == Filter::COLUMN_IS_NAME_DOT_KEY;
    columns.push_back(column_of(filter, piece));
  }
  std::string const keys = is_renamed ? boost::algorithm::join(columns, ",") : value.get_str();
  return (controls->*set)(&keys);
}

using Control_Handler = boost::function<bool(Value const&, Controls*, Filters const*)>;
using namespace boost::placeholders;

Key2_Value_T<Control_Handler> const control_handlers[] = {
    {"sort", 4, boost::bind(&handle_sort, _1, _2, _3, static_cast<Text_Setter>(&Controls::sort))},
    {"order", 5, boost::bind(&handle_text, _1, _2, static_cast<Text_Setter>(&Controls::order))},
    {"offset", 6, boost::bind(&handle_integer, _1, _2, static_cast<Integer_Setter>(&Controls::offset))},
    {"limit", 5, boost::bind(&handle_integer, _1, _2, static_cast<Integer_Setter>(&Controls::limit))},
    {nullptr, 0, Control_Handler()}};

// A text as a value of the type, uuids as text.
Value typed_value(std::string const& text, unsigned int type) {
  if (type == Filter::TYPE_BOOL) return request_text::read_boolean(text);
  if (type == Filter::TYPE_INT) return request_text::read_integer(text);
  return text;
}

json_spirit::Array typed_list(std::string const& text, unsigned int type) {
  json_spirit::Array list;
  for (std::string const& piece : request_text::read_list(text)) list.push_back(typed_value(piece, type));
  return list;
}

bool is_uuid(Value const& value) { return value.type() == json_spirit::str_type && is_valid_uuid(value.get_str()); }

// The value to compare a column of the type with; false when it cannot be one.
bool to_binding(Value const& value, unsigned int type, Binding_Value& binding) {
  bool const is_text = value.type() == json_spirit::str_type;
  switch (type) {
    case Filter::TYPE_BOOL:
    case Filter::TYPE_INT: {
      json_spirit::Value_type const kind = type == Filter::TYPE_BOOL ? json_spirit::bool_type : json_spirit::int_type;
      if (!is_text && value.type() != kind) return false;
      binding = is_text ? typed_value(value.get_str(), type) : value;
      return true;
    }
    case Filter::TYPE_UUID:
      if (!is_uuid(value)) return false;
      binding = uuid_string_to_binary(value.get_str());
      return true;
    default: binding = value; return true;
  }
}

// IN and NOT IN.
bool add_list_condition(Filter_SQL& target, std::string const& column, Value const& value, unsigned int type, bool in) {
  json_spirit::Array pieces;
  json_spirit::Array const* list = &pieces;
  if (value.type() == json_spirit::array_type) {
    list = &value.get_array();
  } else if (value.type() == json_spirit::str_type) {
    pieces = typed_list(value.get_str(), type);
  } else {
    sql_log::report({source_file}, LM_ERROR, 0, "Invalid filter value type '%d'.\n", static_cast<int>(value.type()));
    return false;
  }
  bool const uuids = type == Filter::TYPE_UUID;
  if (uuids && !std::all_of(list->begin(), list->end(), is_uuid)) return false;
  add_set_condition(target, column, *list, in, uuids);
  return true;
}

Filter_SQL* add_group(std::string const& key, Filter_SQL* target) {
  if (key == "AND") return target->add_and_filter();
  return target->add_or_filter();
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
  if ((flags & accumulate_flag) != 0) return;
  if (filter_ != nullptr) filter_->clear();
  controls_.clear();
}

bool SQL_Filter_Parser::parse(std::map<std::string, std::string> const& params, unsigned int flags) {
  start(flags);
  Read_Allowance allowance;
  for (auto const& [key, value] : params) {
    if (!parse_pair(key, Value(value), allowance)) report_failure(key, value);
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

// A control, else a condition where there can be one; false for a condition that failed.
bool SQL_Filter_Parser::parse_pair(std::string const& key, Value const& value, Read_Allowance& allowance) {
  if (parse_control_i(key, value)) return true;
  return filter_ == nullptr || filters_ == nullptr || parse_filter(key, value, filter_, allowance);
}

bool SQL_Filter_Parser::parse_control_i(std::string const& key, Value const& value) {
  Control_Handler const& handler = Key2_Value_T<Control_Handler>::find(control_handlers, key.c_str(), key.size()).value;
  return handler && handler(value, &controls_, filters_);
}

bool SQL_Filter_Parser::parse_filter_i(std::string const& key, Value const& value, Filter_SQL* target) {
  Read_Allowance allowance;
  return parse_filter(key, value, target, allowance);
}

bool SQL_Filter_Parser::parse_filter(std::string const& key, Value const& value, Filter_SQL* target,
                                     Read_Allowance& allowance) {
  struct Level {
    Object::const_iterator next;
    Object::const_iterator end;
    Filter_SQL* target;
  };
  backup::Block_Stack<Level> levels;
  // Handles one pair; the members of an object are left to the loop below.
  auto const handle = [&](std::string const& name, Value const& operand, Filter_SQL* filter) {
    if (!request_text::is_group(name)) return parse_condition(name, operand, *filter);
    Filter_SQL* const group = add_group(name, filter);
    if (group == nullptr) return false;
    if (operand.type() == json_spirit::obj_type) {
      levels.push({operand.get_obj().begin(), operand.get_obj().end(), group});
      return true;
    }
    if (operand.type() == json_spirit::str_type) {
      auto const add = [this](std::string const& k, std::string const& v, Filter_SQL* f) {
        return parse_condition(k, Value(v), *f);
      };
      return request_text::walk_query_string(operand.get_str(), group, allowance, add, add_group);
    }
    sql_log::report({source_file}, LM_ERROR, 0, "Invalid AND/OR filter value type '%d'.\n",
                    static_cast<int>(operand.type()));
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

// One condition; true as well for a key that the table lacks, which is left out.
bool SQL_Filter_Parser::parse_condition(std::string const& key, Value const& value, Filter_SQL& target) const {
  Item_SQL::Item_Op op = Item_SQL::OP_NONE;
  std::string plain_key;
  Filter const& filter = allowed(key, op, plain_key);
  if (filter.type == 0) return true;
  std::string const column = column_of(filter, plain_key);
  switch (op) {
    case Item_SQL::OP_NL: target.add_null_item(column); return true;
    case Item_SQL::OP_NN: target.add_not_null_item(column); return true;
    case Item_SQL::OP_IN: return add_list_condition(target, column, value, filter.type, true);
    case Item_SQL::OP_NI: return add_list_condition(target, column, value, filter.type, false);
    default: break;
  }
  Binding_Value binding;
  if (!to_binding(value, filter.type, binding)) return false;
  target.add_kv_item(op, column, binding, (filter.flags & Filter::FLAG_LOWER_CASE) != 0 ? lower_flag : 0);
  return true;
}

Item_SQL::Item_Op SQL_Filter_Parser::parse_op_key(std::string const& key, unsigned long long* prefix_length) const {
  Item_SQL::Item_Op op = Item_SQL::OP_NONE;
  if (key.size() > 2 && key[2] == '_') op = Item_SQL::op_name_to_value(key.c_str(), 2);
  if (op == Item_SQL::OP_NONE) return Item_SQL::OP_EQ;
  if (prefix_length != nullptr) *prefix_length = 3;
  return op;
}

// Takes a key apart and looks it up; an entry of type 0 for one that is not allowed.
Filter const& SQL_Filter_Parser::allowed(std::string const& key, Item_SQL::Item_Op& op, std::string& plain_key) const {
  unsigned long long prefix = 0;
  op = parse_op_key(key, &prefix);
  plain_key.assign(key, prefix, std::string::npos);
  static Filter const none = {nullptr, 0, 0, 0};
  if (filters_ == nullptr) return none;
  return Filters::find(filters_, plain_key.c_str(), plain_key.size()).value;
}

bool SQL_Filter_Parser::control(Select_SQL& select) const {
  if (controls_.sort() != nullptr) select.sort_keys(controls_.sort()->c_str());
  if (controls_.order() != nullptr) select.sort_orders(controls_.order()->c_str());
  if (controls_.limit() != nullptr) select.limit(*controls_.limit());
  if (controls_.offset() != nullptr) select.offset(*controls_.offset());
  return true;
}

Object SQL_Filter_Parser::convert_qs_to_params(std::map<std::string, std::string> const& params) const {
  Object object;
  Read_Allowance allowance;
  for (auto const& [key, value] : params) {
    if (key == "limit" || key == "offset") {
      object[key] = request_text::read_integer(value);
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
  if (!request_text::is_group(key)) return convert(key, value, &params);
  // A copy, for `value` may be the text of the very member that becomes the group.
  std::string const members = value;  // NOLINT(performance-unnecessary-copy-initialization)
  return request_text::walk_query_string(members, open(key, &params), allowance, convert, open);
}

// The JSON value of one pair, typed by the table.
Value SQL_Filter_Parser::convert_value(std::string const& key, std::string const& text) const {
  Item_SQL::Item_Op op = Item_SQL::OP_NONE;
  std::string plain_key;
  unsigned int const type = allowed(key, op, plain_key).type;
  if (type == 0) return text;
  if (op == Item_SQL::OP_NL || op == Item_SQL::OP_NN) return {};
  if (op == Item_SQL::OP_IN || op == Item_SQL::OP_NI) return typed_list(text, type);
  return typed_value(text, type);
}
