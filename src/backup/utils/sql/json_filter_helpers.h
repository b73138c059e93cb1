#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "backup/utils/sql/filter_sql.h"
#include "backup/utils/sql/sql_export.h"
#include "json_spirit/json_spirit.h"

/// Filter documents: conditions in JSON, which programs store, pass on and edit before they become SQL. Two shapes:
///
///   item   {"op": "EQ", "k": "size", "v": 1024}          "v" is a value, or an array for a set of values
///   group  {"op": "AND" or "OR", "v": [member, ...]}      members: items, groups, and strings of raw SQL
///
/// A document names its own columns and may carry raw SQL. It is trusted input: never take one from a stranger.
///
/// The result says whether a function succeeded. A text argument that is null or empty is logged and changes nothing;
/// other failures are logged where the function says so. Nothing is rolled back. A returned pointer points into the
/// document and is valid until the document changes. No function throws or recurses. When memory is short, a function
/// gives false or null with errno ENOMEM, unless it says otherwise, and leaves the document unchanged. Exceptions: a
/// missing list of members may have been added, empty; a function that makes a group or a list of members may leave a
/// part of it, or a null.

/// The member "op", or null when it is absent or no string.
BACKUP_SQL_API std::string const* item_get_op(json_spirit::Object const& item);
/// The same, copied; false leaves `op` as it was.
BACKUP_SQL_API bool item_get_op(json_spirit::Object const& item, std::string& op);
/// The member "k", or null when it is absent or no string.
BACKUP_SQL_API std::string const* item_get_key(json_spirit::Object const& item);
/// The member "v" of any kind, or null when it is absent.
BACKUP_SQL_API json_spirit::Value const* item_get_value(json_spirit::Object const& item);
BACKUP_SQL_API json_spirit::Value* item_get_value(json_spirit::Object& item);
BACKUP_SQL_API bool item_set_key(json_spirit::Object& item, char const* key);
/// Always true.
BACKUP_SQL_API bool item_set_value(json_spirit::Object& item, json_spirit::Value const& value);

/// Set the three members of `item`; other members stay.
BACKUP_SQL_API bool generate_eq_item(char const* key, json_spirit::Value const& value, json_spirit::Object& item);
BACKUP_SQL_API bool generate_ne_item(char const* key, json_spirit::Value const& value, json_spirit::Object& item);
/// "v" is the member `obj_key` of `obj`, or null without one: then no row meets the condition.
BACKUP_SQL_API bool generate_eq_item(char const* key, json_spirit::Object const& obj, char const* obj_key,
                                     json_spirit::Object& item);
/// "v" is the array of the members `obj_key` of the objects `objs`, each distinct value once, in order of first
/// appearance. An element that is no object or lacks the member is logged and gives false; `item` is unchanged.
/// Quadratic in the distinct values.
BACKUP_SQL_API bool generate_eq_item(char const* key, std::vector<json_spirit::Value> const& objs, char const* obj_key,
                                     json_spirit::Object& item);

/// The members of a group: null when "v" is absent or no array.
BACKUP_SQL_API json_spirit::Array const* filter_get_items(json_spirit::Object const& filter);
/// The same; an absent "v" is made an empty array first.
BACKUP_SQL_API json_spirit::Array* filter_get_items(json_spirit::Object& filter);
/// The first item of the group with exactly this key; nested groups are not searched.
BACKUP_SQL_API json_spirit::Object const* filter_find_item(json_spirit::Object const& filter, char const* key);
BACKUP_SQL_API json_spirit::Object* filter_find_item(json_spirit::Object& filter, char const* key);

/// Append to the group; false or null, unlogged, when "v" is no array.
/// Appends a null for the caller to fill.
BACKUP_SQL_API json_spirit::Value* filter_add_item(json_spirit::Object& filter);
BACKUP_SQL_API bool filter_add_item(json_spirit::Object& filter, char const* op, char const* key,
                                    json_spirit::Value const& value);
/// Appends a copy of `item`: an item, a group, a string of raw SQL.
BACKUP_SQL_API bool filter_add_item(json_spirit::Object& filter, json_spirit::Value const& item);
BACKUP_SQL_API bool filter_add_eq_item(json_spirit::Object& filter, char const* key, json_spirit::Value const& value);
BACKUP_SQL_API bool filter_add_ne_item(json_spirit::Object& filter, char const* key, json_spirit::Value const& value);
BACKUP_SQL_API bool filter_add_ge_item(json_spirit::Object& filter, char const* key, json_spirit::Value const& value);
BACKUP_SQL_API bool filter_add_lt_item(json_spirit::Object& filter, char const* key, json_spirit::Value const& value);
BACKUP_SQL_API bool filter_add_le_item(json_spirit::Object& filter, char const* key, json_spirit::Value const& value);
/// "BR" and "BA" are for other readers of the document. They are no SQL operators: the SQL of such an item is empty.
BACKUP_SQL_API bool filter_add_br_item(json_spirit::Object& filter, char const* key, json_spirit::Value const& value);
BACKUP_SQL_API bool filter_add_ba_item(json_spirit::Object& filter, char const* key, json_spirit::Value const& value);
BACKUP_SQL_API bool filter_add_lk_item(json_spirit::Object& filter, char const* key, json_spirit::Value const& value);
/// The members `val_key` of all `objs`, repeats kept. An element that is no object or lacks the member is logged and
/// gives false; a null stays at the end of the group: deliberate.
BACKUP_SQL_API bool filter_add_eq_item(json_spirit::Object& filter, char const* key,
                                       std::vector<json_spirit::Value> const& objs, char const* val_key);
BACKUP_SQL_API bool filter_add_ne_item(json_spirit::Object& filter, char const* key,
                                       std::vector<json_spirit::Value> const& objs, char const* val_key);
/// The member names of `obj`, or with `use_keys` false the member values, in the order of the names.
BACKUP_SQL_API bool filter_add_eq_item(json_spirit::Object& filter, char const* key, json_spirit::Object const& obj,
                                       bool use_keys);
BACKUP_SQL_API bool filter_add_ne_item(json_spirit::Object& filter, char const* key, json_spirit::Object const& obj,
                                       bool use_keys);

/// Erases the first item with exactly this key; true also without one. False, logged and nothing erased, when "v" is no
/// array, or when an object before the match has no string "k".
BACKUP_SQL_API bool filter_remove_item(json_spirit::Object& filter, char const* key);

/// Makes `filter` an empty group: drops its members, and its "k" when `key` is null. Other members of the object stay.
BACKUP_SQL_API bool generate_empty_filter(json_spirit::Object& filter, char const* op, char const* key);
BACKUP_SQL_API bool generate_and_filter(json_spirit::Object& filter);
BACKUP_SQL_API bool generate_or_filter(json_spirit::Object& filter);
/// Makes `filter` an AND with one equality for each name in `keys`: the column of that name and the value of that
/// member of `obj`. A name that is no string, or that `obj` lacks, is logged and gives false; the items made so far
/// stay.
BACKUP_SQL_API bool generate_eq_and_filter(json_spirit::Object& filter, json_spirit::Object const& obj,
                                           std::vector<json_spirit::Value> const& keys);

/// Adds the conditions of a document to `filter`, after what it holds. False with nothing added when `obj` has no
/// string "op" or no "v", when it is a group whose "v" is no array (logged), or when memory is short (errno ENOMEM).
/// Bad members of a group and items without a key are left out; the others are added.
///
/// An array as operand becomes IN for "EQ" and, deliberately, NOT IN for any other operator. A text for a uuid key is
/// compared as 16 bytes. Any other operand is compared unchanged. An unknown operator makes a condition without text,
/// "()".
///
/// Lifetime: raw SQL strings are kept by pointer. The document must stay unchanged until the last rendering of
/// `filter`.
BACKUP_SQL_API bool generate_filter_from_obj(json_spirit::Object const& obj, Filter_SQL& filter);

namespace backup {

/// True for the keys of a document whose texts are uuids: exactly "uuid", "uid" or "incarnation", or any that ends in
/// "_uuid". A document has no table of types, so its keys are judged by name; it is trusted, so its texts are not
/// checked. In a request the table of `SQL_Filter_Parser` decides by `TYPE_UUID`, whatever the name, and a text that is
/// no uuid fails.
BACKUP_SQL_API bool is_uuid_key(std::string_view key);

}  // namespace backup
