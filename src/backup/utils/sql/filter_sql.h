#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "backup/utils/sql/binding_value.h"
#include "backup/utils/sql/item_sql.h"
#include "backup/utils/sql/sql.h"
#include "backup/utils/sql/sql_export.h"
#include "backup/utils/sql/sql_list.h"
#include "json_spirit/json_spirit.h"

class And_Filter_SQL;
class Or_Filter_SQL;
class Select_SQL;
class Union_SQL;

/// Conditions and nested filters, all joined by AND or all by OR. Shape: "(`a`=:1) AND ((`b` IS NULL) OR (`c` IN
/// (1,2)))". Each entry stands in parentheses, even when its text is empty. An empty AND filter is "1", an empty OR
/// filter "0".
///
/// The filter owns what its adders make; the pointers they return are borrowed and die with the entry. When memory is
/// short, an adder sets errno to ENOMEM, returns null (or the unchanged filter) and adds nothing. Adders that name a
/// column or hold a statement also log it. Nested filters of any depth are rendered, copied, cleared and destroyed in
/// constant stack.
///
/// `empty()` is the base's. A filter has no text of its own, so it is always true.
class BACKUP_SQL_API Filter_SQL : public SQL {
public:
  enum Filter_Type : std::uint32_t { FILTER_AND = 0, FILTER_OR = 1 };
  /// The types' names in requests and documents, indexed by type.
  static constexpr std::string_view type_names[] = {"AND", "OR"};

  /// For `add_kv_item`, `add_in_item` and `add_not_in_item`.
  enum Flags : std::uint32_t { no_flags = Key_Item_SQL::no_flags, lower_case = Key_Item_SQL::lower_case };

  explicit Filter_SQL(Filter_Type type);
  /// Shares the other's entries.
  Filter_SQL(Filter_SQL const& other);
  ~Filter_SQL() override;

  /// Drops all entries and makes this an AND filter, even when it was an OR filter: deliberate.
  void clear() override;
  void get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const override;

  /// Shares the other's entries.
  Filter_SQL& operator=(Filter_SQL const& other);

  Filter_Type filter_type() const;
  /// The type of exactly this name; none for any other text.
  static std::optional<Filter_Type> type_of_name(std::string_view name);

  And_Filter_SQL* add_and_filter();
  Or_Filter_SQL* add_or_filter();
  /// Calls the adder of `type`.
  Filter_SQL* add_filter(Filter_Type type);

  /// Keeps two texts by pointer: they must outlive the filter. Renders as "()". Null, and logged, when a text is null
  /// or empty.
  Binary_Item_SQL* add_item(Item_SQL::Item_Op op, char const* left, char const* right);

  /// Adds a condition's text unchanged; with `is_static` it is kept by pointer. A null text adds nothing.
  Filter_SQL& add_sql(char const* text, bool is_static);
  /// The same, but returns the fragment, for `bind`.
  SQL* add_sql_ex(char const* text, bool is_static);

  Null_Item_SQL* add_null_item(std::string const& key);
  Null_Item_SQL* add_not_null_item(std::string const& key);

  In_Item_SQL* add_in_item(std::string const& key, std::vector<json_spirit::Value> const& values, unsigned int flags);
  In_Item_SQL* add_not_in_item(std::string const& key, std::vector<json_spirit::Value> const& values,
                               unsigned int flags);
  /// The list is the member names of `values`.
  In_Item_SQL* add_not_in_item(std::string const& key, json_spirit::Object const& values);
  /// Texts become hexadecimal literals unchanged. Give 32 digits without hyphens: no database runs a literal with
  /// hyphens.
  In_Item_SQL* add_in_uuid_item(std::string const& key, std::vector<json_spirit::Value> const& values);
  In_Item_SQL* add_not_in_uuid_item(std::string const& key, std::vector<json_spirit::Value> const& values);
  /// `sub` is kept by address and must outlive every rendering.
  In_Item_SQL* add_in_item(std::string const& key, SQL const& sub);
  In_Item_SQL* add_not_in_item(std::string const& key, SQL const& sub);
  In_Item_SQL* add_in_item(std::string const& key, SQL const&& sub) = delete;
  In_Item_SQL* add_not_in_item(std::string const& key, SQL const&& sub) = delete;

  /// `lower_case` compares a text in lower case.
  KV_Item_SQL* add_kv_item(Item_SQL::Item_Op op, std::string const& key, Binding_Value const& value,
                           unsigned int flags);
  KV_Item_SQL* add_kv_item(Item_SQL::Item_Op op, std::string const& key, Binding_Value&& value, unsigned int flags);
  KV_Item_SQL* add_kv_eq_item(std::string const& key, Binding_Value const& value);
  KV_Item_SQL* add_kv_eq_item(std::string const& key, Binding_Value&& value);
  KV_Item_SQL* add_kv_ne_item(std::string const& key, Binding_Value const& value);
  KV_Item_SQL* add_kv_ne_item(std::string const& key, Binding_Value&& value);
  Key_UUID_Item_SQL* add_key_uuid_item(Item_SQL::Item_Op op, std::string const& key, std::string const& uuid);
  Key_UUID_Item_SQL* add_key_uuid_eq_item(std::string const& key, std::string const& uuid);
  Key_UUID_Item_SQL* add_key_uuid_ne_item(std::string const& key, std::string const& uuid);
  /// Compares with the integer at the start of `text`, base 10 (strtoll).
  KV_Item_SQL* add_key_int_item(Item_SQL::Item_Op op, std::string const& key, std::string const& text);
  /// Compares with false for exactly "0" and with true for any other text, "" and "false" included: deliberate.
  KV_Item_SQL* add_key_bool_item(Item_SQL::Item_Op op, std::string const& key, std::string const& text);

  /// Return the new condition's statement, which the caller fills.
  SQL* add_key_sql_item(Item_SQL::Item_Op op, std::string const& key);
  SQL* add_key_sql_eq_item(std::string const& key);
  Select_SQL* add_key_select_sql_in_item(std::string const& key);
  Select_SQL* add_key_select_sql_not_in_item(std::string const& key);
  Union_SQL* add_key_union_sql_in_item(std::string const& key);
  /// ":1<op>(statement)", and "(statement)<op>:1" for `add_sql_val_item`.
  SQL* add_val_sql_item(Item_SQL::Item_Op op, Binding_Value const& value);
  SQL* add_sql_val_item(Item_SQL::Item_Op op, Binding_Value const& value);

  /// Adds "key LIKE :__search_n ESCAPE '|'", which finds rows that contain `text`; "%" and "_" in it are ordinary
  /// characters. The key is not quoted; n is the number of entries before this one. The name is not unique in a
  /// statement: when two filters have a search at the same place, both find what the later one looks for. Keep searches
  /// in one filter, or bind your own names with `add_sql_ex`.
  Filter_SQL& add_substr_matching(std::string const& key, std::string const& text);

  /// The first condition on the column `key`, quoted or not; null without one. Nested filters are not searched. Linear.
  Key_Item_SQL* find_key_item(std::string const& key) const;
  /// That condition if it compares with a value, else null; later conditions are not looked at.
  KV_Item_SQL* find_kv_item(std::string const& key) const;
  /// Removes the first entry that is this object; false when none is. Linear.
  bool remove_item(SQL const* item);

  /// The adders of statement conditions call these. Return the condition's statement.
  SQL* add_key_sql_item_i(SQL::Type type, Item_SQL::Item_Op op, std::string const& key);
  SQL* add_val_sql_item_i(SQL::Type type, Item_SQL::Item_Op op, Binding_Value const& value, bool sql_first);

private:
  template <class Value>
  KV_Item_SQL* add_kv_item_i(Item_SQL::Item_Op op, std::string const& key, Value&& value, unsigned int flags);
  void make_room();
  template <class T, class... Arguments>
  T* add(Arguments&&... arguments);
  template <class T, class... Arguments>
  SQL* add_holder(Arguments const&... arguments);
  Null_Item_SQL* add_null_item_i(std::string const& key, bool is_null);
  template <class List, class... Rest>
  In_Item_SQL* add_in_item_i(std::string const& key, List const& values, bool in, Rest... rest);
  bool is_own_class() const override;
  void write_sql(backup::SQL_Writer& out) const override;
  struct Frame;
  Frame open(backup::SQL_Writer& out) const;
  void report_unknown_type() const;
  static Filter_SQL const* plain_filter(SQL const& entry);
  static void release(backup::SQL_List& items) noexcept;

  Filter_Type filter_type_;
  backup::SQL_List items_;
};

/// A filter joined by AND.
class BACKUP_SQL_API And_Filter_SQL : public Filter_SQL {
public:
  And_Filter_SQL();
  ~And_Filter_SQL() override;

private:
  bool is_own_class() const override;
};

/// A filter joined by OR.
class BACKUP_SQL_API Or_Filter_SQL : public Filter_SQL {
public:
  Or_Filter_SQL();
  ~Or_Filter_SQL() override;

private:
  bool is_own_class() const override;
};
