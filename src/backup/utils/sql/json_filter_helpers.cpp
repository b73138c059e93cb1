#include "backup/utils/sql/json_filter_helpers.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <string_view>
#include <utility>

#include "backup/runtime/detail/block_stack.h"
#include "backup/utils/sql/detail/add_condition.h"
#include "backup/utils/sql/detail/sql_log.h"
#include "backup/utils/sql/detail/sql_new.h"

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

namespace {

constexpr char const* source_file = "src/backup/utils/sql/json_filter_helpers";
constexpr char const* and_name = Filter_SQL::type_names[Filter_SQL::FILTER_AND].data();

bool check(char const* text, char const* name, int line = __builtin_LINE()) {
  return sql_log::check_argument({source_file, line}, text, name);
}

void report_exception(char const* format, std::exception const& exception, int line = __builtin_LINE()) {
  sql_log::report({source_file, line}, LM_ERROR, 0, format, exception.what());
  if (dynamic_cast<std::bad_alloc const*>(&exception) != nullptr) errno = ENOMEM;
}

// `value` is what a Value can be made of.
template <class T>
bool set_member(Object& object, char const* name, T const& value) {
  return without_throwing([&] {
    object[name] = Value(value);
    return true;
  });
}

Object make_item(char const* op, std::string const& key, Value&& operand) {
  Object item;
  item["op"] = Value(op);
  item["k"] = Value(key);
  item["v"] = std::move(operand);
  return item;
}

// Moves members into an object, in place of members with the same names.
void set_members(Object& object, Object&& members) noexcept {
  while (!members.empty()) {
    auto member = members.extract(members.begin());
    auto const present = object.find(member.key());
    if (present == object.end()) {
      object.insert(std::move(member));
    } else {
      present->second = std::move(member.mapped());
    }
  }
}

bool generate_item(char const* op, char const* key, Value const& value, Object& item) {
  if (!check(op, "op") || !check(key, "key")) return false;
  return without_throwing([&] {
    set_members(item, make_item(op, key, Value(value)));
    return true;
  });
}

// Passes the member `name` of each object to `take`. Throws for an element without that member.
template <class Take>
void for_each_member(std::vector<Value> const& objects, char const* name, Take take) {
  std::string const key = name;
  for (Value const& object : objects) take(object.get_obj().at(key));
}

bool is_item_with_key(Value const& member, std::string_view key) {
  if (member.type() != json_spirit::obj_type) return false;
  std::string const* const found = item_get_key(member.get_obj());
  return found != nullptr && *found == key;
}

bool add_item(Object& filter, char const* op, std::string const& key, Value&& operand) {
  Array* const items = filter_get_items(filter);
  if (items == nullptr) return false;
  items->emplace_back(make_item(op, key, std::move(operand)));
  return true;
}

bool add_members_item(Object& filter, char const* op, char const* key, std::vector<Value> const& objs,
                      char const* val_key) {
  if (!check(op, "op") || !check(key, "key") || !check(val_key, "val_key")) return false;
  Value* const item = filter_add_item(filter);
  if (item == nullptr) return false;
  try {
    Array values;
    for_each_member(objs, val_key, [&values](Value const& value) { values.push_back(value); });
    *item = make_item(op, key, std::move(values));
    return true;
  } catch (std::exception const& exception) {
    report_exception("Failed to generate object array item: %s\n", exception);
    return false;
  }
}

bool add_object_item(Object& filter, char const* op, char const* key, Object const& obj, bool use_keys) {
  if (!check(op, "op") || !check(key, "key")) return false;
  return without_throwing([&] {
    Array values;
    values.reserve(obj.size());
    for (auto const& [name, value] : obj) values.push_back(use_keys ? Value(name) : value);
    return add_item(filter, op, key, std::move(values));
  });
}

bool generate_filter_of_members(Object& filter, char const* filter_op, char const* item_op, Object const& obj,
                                std::vector<Value> const& keys) {
  if (!check(filter_op, "filter_op") || !check(item_op, "item_op")) return false;
  // The group's old members stay alive, at their address, to the end: `obj` and `keys` may be among them.
  auto held = filter.extract("v");
  try {
    if (!generate_empty_filter(filter, filter_op, nullptr)) {
      filter.insert(std::move(held));
      return false;
    }
    for (Value const& key : keys) {
      std::string const& name = key.get_str();
      Value value = obj.at(name);
      if (!check(name.c_str(), "key") || !add_item(filter, item_op, name, std::move(value))) return false;
    }
    return true;
  } catch (std::exception const& exception) {
    report_exception("Failed to generate equal and filter: %s\n", exception);
    return false;
  }
}

// The three members of an item or group. Null for a missing one, and for a text of another kind.
struct Members {
  // In one pass: objects in documents have few other members.
  explicit Members(Object const& object) {
    for (auto const& [member, value] : object) {
      std::string_view const name = member;
      if (name == "v") {
        operand = &value;
      } else if (value.type() == json_spirit::str_type) {
        if (name == "op") op = &value.get_str();
        if (name == "k") key = &value.get_str();
      }
    }
  }

  std::string const* op = nullptr;
  std::string const* key = nullptr;
  Value const* operand = nullptr;
};

// Adds an item of a document as a condition. An item without a key is left out.
void add_condition(Filter_SQL& filter, std::string const* key, std::string const& op_name, Value const& operand) {
  if (key == nullptr) return;
  Item_SQL::Item_Op const op = Item_SQL::op_name_to_value(op_name.c_str(), op_name.size());
  bool const is_uuid = backup::is_uuid_key(*key);
  if (operand.type() == json_spirit::array_type) {
    backup::add_set_condition(filter, *key, operand.get_array(), op == Item_SQL::OP_EQ, is_uuid);
  } else if (is_uuid && operand.type() == json_spirit::str_type) {
    backup::require_added(filter.add_key_uuid_item(op, *key, operand.get_str()));
  } else {
    backup::require_added(filter.add_kv_item(op, *key, operand, Filter_SQL::no_flags));
  }
}

// A group whose members are being converted.
struct Group {
  Array const* members;
  std::size_t next;
  Filter_SQL* filter;
};

// Converts an item. Of a group only adds the filter and pushes it on `groups`.
bool convert_object(Object const& object, Filter_SQL& filter, backup::Block_Stack<Group>& groups) {
  auto const [op, key, operand] = Members(object);
  if (op == nullptr || operand == nullptr) return false;
  std::optional<Filter_SQL::Filter_Type> const type = Filter_SQL::type_of_name(*op);
  if (!type) {
    add_condition(filter, key, *op, *operand);
    return true;
  }
  if (operand->type() != json_spirit::array_type) {
    sql_log::unexpected({source_file}, "Unexpected error in %s:%d, *val is not array!\n", source_file, __LINE__);
    return false;
  }
  groups.push({&operand->get_array(), 0, nullptr});  // first, as it may fail
  Filter_SQL* const sub_filter = filter.add_filter(*type);
  if (sub_filter == nullptr) {
    sql_log::unexpected({source_file}, "Unexpected error in %N:%l, sub_filter_sql is NULL:\n%?\n");
  }
  backup::require_added(sub_filter);
  groups.top().filter = sub_filter;
  return true;
}

// Converts the members of the groups and of all groups inside them.
void convert_members(backup::Block_Stack<Group>& groups) {
  while (!groups.empty()) {
    Group& group = groups.top();
    if (group.next == group.members->size()) {
      groups.pop();
      continue;
    }
    Value const& member = (*group.members)[group.next++];
    Filter_SQL& target = *group.filter;
    if (member.type() == json_spirit::obj_type) {
      convert_object(member.get_obj(), target, groups);
    } else if (member.type() == json_spirit::str_type) {
      backup::require_added(target.add_sql_ex(member.get_str().c_str(), true));
    }
  }
}

}  // namespace

std::string const* item_get_op(Object const& item) { return json_spirit::object_get_str(item, "op"); }

bool item_get_op(Object const& item, std::string& op) {
  std::string const* const found = item_get_op(item);
  return found != nullptr && without_throwing([&] {
           op = *found;
           return true;
         });
}

std::string const* item_get_key(Object const& item) { return json_spirit::object_get_str(item, "k"); }

Value const* item_get_value(Object const& item) { return json_spirit::object_get_value(item, "v"); }

Value* item_get_value(Object& item) {
  auto const found = item.find("v");
  return found == item.end() ? nullptr : &found->second;
}

bool item_set_key(Object& item, char const* key) { return check(key, "key") && set_member(item, "k", key); }

bool item_set_value(Object& item, Value const& value) { return set_member(item, "v", value); }

bool generate_eq_item(char const* key, Value const& value, Object& item) {
  return generate_item("EQ", key, value, item);
}

bool generate_ne_item(char const* key, Value const& value, Object& item) {
  return generate_item("NE", key, value, item);
}

bool generate_eq_item(char const* key, Object const& obj, char const* obj_key, Object& item) {
  if (!check(key, "key") || !check(obj_key, "obj_key")) return false;
  return without_throwing([&] {
    Value const* const value = json_spirit::object_get_value(obj, obj_key);
    return generate_item("EQ", key, value == nullptr ? Value() : *value, item);
  });
}

bool generate_eq_item(char const* key, std::vector<Value> const& objs, char const* obj_key, Object& item) {
  if (!check(key, "key") || !check(obj_key, "obj_key")) return false;
  try {
    Array distinct;
    for_each_member(objs, obj_key, [&distinct](Value const& value) {
      if (std::find(distinct.begin(), distinct.end(), value) == distinct.end()) distinct.push_back(value);
    });
    return generate_item("EQ", key, Value(std::move(distinct)), item);
  } catch (std::exception const& exception) {
    report_exception("Failed to generate object array item: %s\n", exception);
    return false;
  }
}

Array const* filter_get_items(Object const& filter) { return json_spirit::object_get_array(filter, "v"); }

Array* filter_get_items(Object& filter) {
  return without_throwing([&] {
    Value& items = filter.try_emplace("v", Array()).first->second;
    return items.type() == json_spirit::array_type ? &items.get_array() : nullptr;
  });
}

Object const* filter_find_item(Object const& filter, char const* key) {
  if (!check(key, "key")) return nullptr;
  Array const* const items = filter_get_items(filter);
  if (items == nullptr) return nullptr;
  auto const found =
      std::find_if(items->begin(), items->end(), [key](Value const& member) { return is_item_with_key(member, key); });
  return found == items->end() ? nullptr : &found->get_obj();
}

Object* filter_find_item(Object& filter, char const* key) {
  return const_cast<Object*>(filter_find_item(static_cast<Object const&>(filter), key));
}

Value* filter_add_item(Object& filter) {
  return without_throwing([&] {
    Array* const items = filter_get_items(filter);
    return items == nullptr ? nullptr : &items->emplace_back();
  });
}

bool filter_add_item(Object& filter, char const* op, char const* key, Value const& value) {
  if (!check(op, "op") || !check(key, "key")) return false;
  return without_throwing([&] { return add_item(filter, op, key, Value(value)); });
}

bool filter_add_item(Object& filter, Value const& item) {
  return without_throwing([&] {
    Array* const items = filter_get_items(filter);
    if (items == nullptr) return false;
    items->push_back(item);
    return true;
  });
}

bool filter_add_eq_item(Object& filter, char const* key, Value const& value) {
  return filter_add_item(filter, "EQ", key, value);
}

bool filter_add_ne_item(Object& filter, char const* key, Value const& value) {
  return filter_add_item(filter, "NE", key, value);
}

bool filter_add_ge_item(Object& filter, char const* key, Value const& value) {
  return filter_add_item(filter, "GE", key, value);
}

bool filter_add_lt_item(Object& filter, char const* key, Value const& value) {
  return filter_add_item(filter, "LT", key, value);
}

bool filter_add_le_item(Object& filter, char const* key, Value const& value) {
  return filter_add_item(filter, "LE", key, value);
}

bool filter_add_br_item(Object& filter, char const* key, Value const& value) {
  return filter_add_item(filter, "BR", key, value);
}

bool filter_add_ba_item(Object& filter, char const* key, Value const& value) {
  return filter_add_item(filter, "BA", key, value);
}

bool filter_add_lk_item(Object& filter, char const* key, Value const& value) {
  return filter_add_item(filter, "LK", key, value);
}

bool filter_add_eq_item(Object& filter, char const* key, std::vector<Value> const& objs, char const* val_key) {
  return add_members_item(filter, "EQ", key, objs, val_key);
}

bool filter_add_ne_item(Object& filter, char const* key, std::vector<Value> const& objs, char const* val_key) {
  return add_members_item(filter, "NE", key, objs, val_key);
}

bool filter_add_eq_item(Object& filter, char const* key, Object const& obj, bool use_keys) {
  return add_object_item(filter, "EQ", key, obj, use_keys);
}

bool filter_add_ne_item(Object& filter, char const* key, Object const& obj, bool use_keys) {
  return add_object_item(filter, "NE", key, obj, use_keys);
}

bool filter_remove_item(Object& filter, char const* key) {
  if (!check(key, "key")) return false;
  try {
    Array& items = json_spirit::object_get_array_or_throw(filter, "v");
    auto const found = std::find_if(items.begin(), items.end(), [key](Value const& member) {
      return member.type() == json_spirit::obj_type && member.get_obj().at("k").get_str() == key;
    });
    if (found != items.end()) items.erase(found);
    return true;
  } catch (std::exception const& exception) {
    report_exception("Failed to remove item from filter: %s\n", exception);
    return false;
  }
}

bool generate_empty_filter(Object& filter, char const* op, char const* key) {
  if (!check(op, "op")) return false;
  return without_throwing([&] {
    Object members = {{"op", op}, {"v", Array()}};
    if (key != nullptr) members["k"] = Value(key);
    if (key == nullptr) filter.erase("k");
    set_members(filter, std::move(members));
    return true;
  });
}

bool generate_and_filter(Object& filter) { return generate_empty_filter(filter, and_name, nullptr); }

bool generate_or_filter(Object& filter) {
  return generate_empty_filter(filter, Filter_SQL::type_names[Filter_SQL::FILTER_OR].data(), nullptr);
}

bool generate_eq_and_filter(Object& filter, Object const& obj, std::vector<Value> const& keys) {
  return generate_filter_of_members(filter, and_name, "EQ", obj, keys);
}

bool generate_filter_from_obj(Object const& obj, Filter_SQL& filter) {
  Filter_SQL const* added = nullptr;
  bool const is_converted = without_throwing([&] {
    backup::Block_Stack<Group> groups;
    if (!convert_object(obj, filter, groups)) return false;
    if (!groups.empty()) added = groups.top().filter;
    convert_members(groups);
    return true;
  });
  if (!is_converted && added != nullptr) filter.remove_item(added);  // half a group would choose more rows
  return is_converted;
}

bool backup::is_uuid_key(std::string_view key) {
  constexpr std::string_view suffix = "_uuid";
  if (key == "uuid" || key == "uid" || key == "incarnation") return true;
  return key.size() >= suffix.size() && key.substr(key.size() - suffix.size()) == suffix;
}
