#include "backup/utils/sql/filter_sql.h"

#include <ace/OS_NS_stdlib.h>

#include <algorithm>
#include <utility>

#include "backup/runtime/detail/block_stack.h"
#include "backup/utils/sql/detail/sql_log.h"
#include "backup/utils/sql/detail/sql_new.h"
#include "backup/utils/sql/detail/sql_writer.h"
#include "backup/utils/sql/quote.h"
#include "backup/utils/sql/select_sql.h"
#include "backup/utils/sql/union_sql.h"

using backup::SQL_Writer;

namespace {

constexpr char const* source_file = "src/backup/utils/sql/filter_sql";

char const* not_text(bool negated) { return negated ? "not " : ""; }

// `statement` as its class, or null when it has another type.
template <class T>
T* statement_as(SQL* statement, SQL::Type type) {
  return statement != nullptr && statement->type() == type ? static_cast<T*>(statement) : nullptr;
}

}  // namespace

Filter_SQL::Filter_SQL(Filter_Type type) : SQL(nullptr, TYPE_FILTER, true), filter_type_(type) {}

Filter_SQL::Filter_SQL(Filter_SQL const& other) = default;

Filter_SQL::~Filter_SQL() {
  if (!items_.empty()) release(items_);
}

bool Filter_SQL::is_own_class() const { return backup::is_exactly<Filter_SQL>(*this); }

And_Filter_SQL::And_Filter_SQL() : Filter_SQL(FILTER_AND) {}
And_Filter_SQL::~And_Filter_SQL() = default;

bool And_Filter_SQL::is_own_class() const { return backup::is_exactly<And_Filter_SQL>(*this); }

Or_Filter_SQL::Or_Filter_SQL() : Filter_SQL(FILTER_OR) {}
Or_Filter_SQL::~Or_Filter_SQL() = default;

bool Or_Filter_SQL::is_own_class() const { return backup::is_exactly<Or_Filter_SQL>(*this); }

void Filter_SQL::clear() {
  release(items_);
  filter_type_ = FILTER_AND;
  SQL::clear();
}

Filter_SQL& Filter_SQL::operator=(Filter_SQL const& other) {
  if (this == &other) return *this;
  backup::SQL_List items = other.items_;
  SQL::operator=(other);
  filter_type_ = other.filter_type_;
  items_.swap(items);
  release(items);
  return *this;
}

Filter_SQL::Filter_Type Filter_SQL::filter_type() const { return filter_type_; }

std::optional<Filter_SQL::Filter_Type> Filter_SQL::type_of_name(std::string_view name) {
  for (Filter_Type const type : {FILTER_AND, FILTER_OR}) {
    if (name == type_names[type]) return type;
  }
  return std::nullopt;
}

void Filter_SQL::get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const {
  SQL_Writer::render(*this, db, sql, bindings, index);
}

// A filter that is being written.
struct Filter_SQL::Frame {
  Filter_SQL const* filter;
  SQL* const* next;
  SQL* const* end;
};

// (entry) AND (entry)... | (entry) OR (entry)... | 1 | 0
//
// Nested filters are written in place. A stack holds the filters around them: no recursion, no copy of their texts.
void Filter_SQL::write_sql(SQL_Writer& out) const {
  backup::Block_Stack<Frame> around;
  Frame frame = open(out);
  for (;;) {
    if (frame.next == frame.end) {
      if (around.empty()) return;
      out.merge_bindings(*frame.filter);
      frame = around.take();
    } else {
      SQL const& entry = **frame.next++;
      if (Filter_SQL const* const nested = plain_filter(entry)) {
        around.push(frame);
        frame = nested->open(out);
        continue;
      }
      out.part(entry);
    }
    if (frame.next == frame.end) {
      out << ')';
    } else if (frame.filter->filter_type_ == FILTER_AND) {
      out << ") AND (";
    } else {
      out << ") OR (";
    }
  }
}

// Writes what comes before the first entry; "1" or "0" without entries.
Filter_SQL::Frame Filter_SQL::open(SQL_Writer& out) const {
  if (filter_type_ != FILTER_AND && filter_type_ != FILTER_OR) {
    report_unknown_type();
    return {this, nullptr, nullptr};
  }
  if (items_.empty()) {
    out << (filter_type_ == FILTER_AND ? '1' : '0');
  } else {
    out << '(';
  }
  return {this, items_.begin(), items_.end()};
}

void Filter_SQL::report_unknown_type() const {
  sql_log::report({source_file}, LM_ERROR, 0, "Unknown filter type: %d\n", static_cast<int>(filter_type_));
}

// `entry` as a filter of the library's own classes, or null: a caller's subclass renders itself.
Filter_SQL const* Filter_SQL::plain_filter(SQL const& entry) {
  bool const is_plain = entry.type() == TYPE_FILTER &&
                        (backup::is_exactly<And_Filter_SQL>(entry) || backup::is_exactly<Or_Filter_SQL>(entry) ||
                         backup::is_exactly<Filter_SQL>(entry));
  return is_plain ? static_cast<Filter_SQL const*>(&entry) : nullptr;
}

// Drops entries. Nested filters of any depth take neither recursion nor allocation: while a filter is emptied, its own
// list holds the entries of the filter around it, and behind them a pointer to the filter whose entries they are.
void Filter_SQL::release(backup::SQL_List& items) noexcept {
  backup::SQL_List current;
  current.swap(items);
  SQL* emptied = nullptr;  // the filter whose entries `current` holds; null at the outermost level
  for (;;) {
    if (current.empty()) {
      if (emptied == nullptr) return;
      current.swap(static_cast<Filter_SQL*>(emptied)->items_);
      intrusive_remove_ref(std::exchange(emptied, current.take_back()));
      continue;
    }
    SQL* const entry = current.take_back();
    auto* const nested = plain_filter(*entry) != nullptr ? static_cast<Filter_SQL*>(entry) : nullptr;
    if (nested == nullptr || nested->items_.empty() || !is_sole_reference(*entry)) {
      intrusive_remove_ref(entry);
      continue;
    }
    current.give_back(emptied);  // in the room of the entry just removed
    current.swap(nested->items_);
    emptied = entry;
  }
}

void Filter_SQL::make_room() { items_.reserve(items_.size() + 1); }

// Appends a new T. Null with errno ENOMEM and nothing added when memory is short.
template <class T, class... Arguments>
T* Filter_SQL::add(Arguments&&... arguments) {
  return without_throwing([&] {
    make_room();
    T* const item = new T(std::forward<Arguments>(arguments)...);
    items_.push_back(item);
    return item;
  });
}

// Appends a new condition that holds a statement, and returns the statement. Null as for `add`.
template <class T, class... Arguments>
SQL* Filter_SQL::add_holder(Arguments const&... arguments) {
  return without_throwing([&]() -> SQL* {
    ACE_Intrusive_Auto_Ptr<SQL> owner;
    make_room();
    T* const object = new_sql<T>(owner, arguments...);
    if (object->sql().get() != nullptr) items_.push_back(object);
    return object->sql().get();
  });
}

And_Filter_SQL* Filter_SQL::add_and_filter() { return add<And_Filter_SQL>(); }
Or_Filter_SQL* Filter_SQL::add_or_filter() { return add<Or_Filter_SQL>(); }

Filter_SQL* Filter_SQL::add_filter(Filter_Type type) {
  if (type == FILTER_AND) return add_and_filter();
  return add_or_filter();
}

Binary_Item_SQL* Filter_SQL::add_item(Item_SQL::Item_Op op, char const* left, char const* right) {
  if (!sql_log::check_argument({source_file}, left, "left")) return nullptr;
  if (!sql_log::check_argument({source_file}, right, "right")) return nullptr;
  return add<Binary_Item_SQL>(op, left, right);
}

Filter_SQL& Filter_SQL::add_sql(char const* text, bool is_static) {
  add_sql_ex(text, is_static);
  return *this;
}

SQL* Filter_SQL::add_sql_ex(char const* text, bool is_static) {
  return text == nullptr ? nullptr : add<SQL>(text, TYPE_RAW, is_static);
}

Null_Item_SQL* Filter_SQL::add_null_item(std::string const& key) { return add_null_item_i(key, true); }
Null_Item_SQL* Filter_SQL::add_not_null_item(std::string const& key) { return add_null_item_i(key, false); }

Null_Item_SQL* Filter_SQL::add_null_item_i(std::string const& key, bool is_null) {
  auto* const item = add<Null_Item_SQL>(key, is_null);
  if (item == nullptr) {
    sql_log::report({source_file}, LM_WARNING, 0, "Failed to add %snull item '%s' to filter.\n", not_text(!is_null),
                    key);
  }
  return item;
}

template <class List, class... Rest>
In_Item_SQL* Filter_SQL::add_in_item_i(std::string const& key, List const& values, bool in, Rest... rest) {
  auto* const item = add<In_Item_SQL>(key, values, in, rest...);
  if (item == nullptr) {
    sql_log::report({source_file}, LM_WARNING, 0, "Failed to add %sin item '%s' to filter.\n", not_text(!in), key);
  }
  return item;
}

In_Item_SQL* Filter_SQL::add_in_item(std::string const& key, std::vector<json_spirit::Value> const& values,
                                     unsigned int flags) {
  return add_in_item_i(key, values, true, false, flags);
}

In_Item_SQL* Filter_SQL::add_not_in_item(std::string const& key, std::vector<json_spirit::Value> const& values,
                                         unsigned int flags) {
  return add_in_item_i(key, values, false, false, flags);
}

In_Item_SQL* Filter_SQL::add_not_in_item(std::string const& key, json_spirit::Object const& values) {
  return add_in_item_i(key, values, false, false);
}

In_Item_SQL* Filter_SQL::add_in_uuid_item(std::string const& key, std::vector<json_spirit::Value> const& values) {
  return add_in_item_i(key, values, true, true, no_flags);
}

In_Item_SQL* Filter_SQL::add_not_in_uuid_item(std::string const& key, std::vector<json_spirit::Value> const& values) {
  return add_in_item_i(key, values, false, true, no_flags);
}

In_Item_SQL* Filter_SQL::add_in_item(std::string const& key, SQL const& sub) { return add_in_item_i(key, sub, true); }

In_Item_SQL* Filter_SQL::add_not_in_item(std::string const& key, SQL const& sub) {
  return add_in_item_i(key, sub, false);
}

KV_Item_SQL* Filter_SQL::add_kv_item(Item_SQL::Item_Op op, std::string const& key, Binding_Value const& value,
                                     unsigned int flags) {
  return add_kv_item_i(op, key, value, flags);
}

KV_Item_SQL* Filter_SQL::add_kv_item(Item_SQL::Item_Op op, std::string const& key, Binding_Value&& value,
                                     unsigned int flags) {
  return add_kv_item_i(op, key, std::move(value), flags);
}

template <class Value>
KV_Item_SQL* Filter_SQL::add_kv_item_i(Item_SQL::Item_Op op, std::string const& key, Value&& value,
                                       unsigned int flags) {
  auto* const item = add<KV_Item_SQL>(op, key, std::forward<Value>(value), flags);
  if (item == nullptr) {
    sql_log::report({source_file}, LM_WARNING, 0, "Failed to add item '%s' to filter.\n", key);
  }
  return item;
}

KV_Item_SQL* Filter_SQL::add_kv_eq_item(std::string const& key, Binding_Value const& value) {
  return add_kv_item(Item_SQL::OP_EQ, key, value, no_flags);
}

KV_Item_SQL* Filter_SQL::add_kv_eq_item(std::string const& key, Binding_Value&& value) {
  return add_kv_item(Item_SQL::OP_EQ, key, std::move(value), 0);
}

KV_Item_SQL* Filter_SQL::add_kv_ne_item(std::string const& key, Binding_Value const& value) {
  return add_kv_item(Item_SQL::OP_NE, key, value, no_flags);
}

KV_Item_SQL* Filter_SQL::add_kv_ne_item(std::string const& key, Binding_Value&& value) {
  return add_kv_item(Item_SQL::OP_NE, key, std::move(value), 0);
}

Key_UUID_Item_SQL* Filter_SQL::add_key_uuid_item(Item_SQL::Item_Op op, std::string const& key,
                                                 std::string const& uuid) {
  auto* const item = add<Key_UUID_Item_SQL>(op, key, uuid);
  if (item == nullptr) {
    sql_log::report({source_file}, LM_WARNING, 0, "Failed to add uuid item '%s' to filter.\n", key);
  }
  return item;
}

Key_UUID_Item_SQL* Filter_SQL::add_key_uuid_eq_item(std::string const& key, std::string const& uuid) {
  return add_key_uuid_item(Item_SQL::OP_EQ, key, uuid);
}

Key_UUID_Item_SQL* Filter_SQL::add_key_uuid_ne_item(std::string const& key, std::string const& uuid) {
  return add_key_uuid_item(Item_SQL::OP_NE, key, uuid);
}

KV_Item_SQL* Filter_SQL::add_key_int_item(Item_SQL::Item_Op op, std::string const& key, std::string const& text) {
  return add_kv_item(op, key, static_cast<long long>(ACE_OS::strtoll(text.c_str(), nullptr, 10)), no_flags);
}

KV_Item_SQL* Filter_SQL::add_key_bool_item(Item_SQL::Item_Op op, std::string const& key, std::string const& text) {
  return add_kv_item(op, key, text != "0", no_flags);
}

SQL* Filter_SQL::add_key_sql_item(Item_SQL::Item_Op op, std::string const& key) {
  return statement_as<SQL>(add_key_sql_item_i(TYPE_RAW, op, key), TYPE_RAW);
}

SQL* Filter_SQL::add_key_sql_eq_item(std::string const& key) { return add_key_sql_item(Item_SQL::OP_EQ, key); }

Select_SQL* Filter_SQL::add_key_select_sql_in_item(std::string const& key) {
  return statement_as<Select_SQL>(add_key_sql_item_i(TYPE_SELECT, Item_SQL::OP_IN, key), TYPE_SELECT);
}

Select_SQL* Filter_SQL::add_key_select_sql_not_in_item(std::string const& key) {
  return statement_as<Select_SQL>(add_key_sql_item_i(TYPE_SELECT, Item_SQL::OP_NI, key), TYPE_SELECT);
}

Union_SQL* Filter_SQL::add_key_union_sql_in_item(std::string const& key) {
  return statement_as<Union_SQL>(add_key_sql_item_i(TYPE_UNION, Item_SQL::OP_IN, key), TYPE_UNION);
}

SQL* Filter_SQL::add_val_sql_item(Item_SQL::Item_Op op, Binding_Value const& value) {
  return statement_as<SQL>(add_val_sql_item_i(TYPE_RAW, op, value, false), TYPE_RAW);
}

SQL* Filter_SQL::add_sql_val_item(Item_SQL::Item_Op op, Binding_Value const& value) {
  return statement_as<SQL>(add_val_sql_item_i(TYPE_RAW, op, value, true), TYPE_RAW);
}

SQL* Filter_SQL::add_key_sql_item_i(SQL::Type type, Item_SQL::Item_Op op, std::string const& key) {
  SQL* const statement = add_holder<Key_SQL_Item_SQL>(type, op, key);
  if (statement == nullptr) {
    sql_log::report({source_file}, LM_ERROR, 0, "Failed to add sql item '%s' to filter.\n", key);
  }
  return statement;
}

SQL* Filter_SQL::add_val_sql_item_i(SQL::Type type, Item_SQL::Item_Op op, Binding_Value const& value, bool sql_first) {
  SQL* const statement = add_holder<Val_SQL_Item_SQL>(type, op, value, sql_first);
  if (statement == nullptr) sql_log::report({source_file}, LM_ERROR, 0, "Failed to add val sql item to filter.\n");
  return statement;
}

Filter_SQL& Filter_SQL::add_substr_matching(std::string const& key, std::string const& text) {
  without_throwing([&]() -> SQL* {
    std::string const name = ":__search_" + std::to_string(items_.size());
    std::string const column = key.substr(0, key.find('\0'));  // the fragment is a C text, which would end there
    std::string const condition = column + " LIKE " + name + " ESCAPE '|'";
    ACE_Intrusive_Auto_Ptr<SQL> owner;
    SQL* const fragment = new_sql<SQL>(owner, condition.c_str(), TYPE_RAW, false);
    fragment->bind(name, Binding_Value('%' + escape_like(text) + '%'));
    make_room();
    items_.push_back(fragment);
    return fragment;
  });
  return *this;
}

Key_Item_SQL* Filter_SQL::find_key_item(std::string const& key) const {
  std::string const quoted = Key_Item_SQL::quote_key(key);
  for (SQL* const entry : items_) {
    if (entry->type() != TYPE_ITEM) continue;
    auto* const item = dynamic_cast<Key_Item_SQL*>(entry);
    if (item != nullptr && item->key() == quoted) return item;
  }
  return nullptr;
}

KV_Item_SQL* Filter_SQL::find_kv_item(std::string const& key) const {
  return dynamic_cast<KV_Item_SQL*>(find_key_item(key));
}

bool Filter_SQL::remove_item(SQL const* item) {
  SQL* const* const entry = std::find(items_.begin(), items_.end(), item);
  if (entry == items_.end()) return false;
  items_.erase(entry);
  return true;
}
