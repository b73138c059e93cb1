#pragma once

#include <ace/Intrusive_Auto_Ptr.h>

#include <cstdint>
#include <string>
#include <vector>

#include "backup/utils/sql/binding_value.h"
#include "backup/utils/sql/sql.h"
#include "backup/utils/sql/sql_export.h"
#include "json_spirit/json_spirit.h"

/// One condition of a filter. A comparison without a key, or with an operator that has no text, renders as empty text,
/// and its filter writes "()". Parameters that it took before stay bound. Conditions keep copies of keys and values.
class BACKUP_SQL_API Item_SQL : public SQL {
public:
  enum Item_Type : std::uint32_t {
    ITEM_NULL = 1,     ///< `Null_Item_SQL`
    ITEM_IN = 2,       ///< `In_Item_SQL`
    ITEM_BINARY = 3,   ///< `Binary_Item_SQL`
    ITEM_KV = 4,       ///< `KV_Item_SQL`, `Key_UUID_Item_SQL`
    ITEM_KEY_SQL = 5,  ///< `Key_SQL_Item_SQL`
    ITEM_VAL_SQL = 6   ///< `Val_SQL_Item_SQL`
  };

  /// In brackets the name in requests and documents, then the text of `op_to_sql`.
  enum Item_Op : std::uint32_t {
    OP_NONE = 0,
    OP_EQ = 1,   ///< [EQ] "="
    OP_NE = 2,   ///< [NE] "!="
    OP_LT = 3,   ///< [LT] "<"
    OP_LE = 4,   ///< [LE] "<="
    OP_GT = 5,   ///< [GT] ">"
    OP_GE = 6,   ///< [GE] ">="
    OP_DEC = 7,  ///< no name, no text: written as "`n`=`n`-:1"
    OP_NL = 8,   ///< [NL] IS NULL, no text
    OP_NN = 9,   ///< [NN] IS NOT NULL, no text
    OP_IN = 10,  ///< [IN] " IN "
    OP_NI = 11,  ///< [NI] " NOT IN "
    OP_LK = 12,  ///< [LK] " LIKE "
    OP_NK = 13   ///< [NK] " NOT LIKE "
  };

  Item_SQL(Item_Type type, Item_Op op);
  ~Item_SQL() override;

  /// Does nothing: an item keeps key, operator, value and text.
  void clear() override;

  Item_Type item_type() const;
  Item_Op op() const;

  /// The operator whose name has exactly these `length` characters, upper case only; OP_NONE for any other text and for
  /// null.
  static Item_Op op_name_to_value(char const* name, unsigned long long length);
  /// The two letters; null for an operator without a name.
  static char const* op_value_to_name(Item_Op op);

private:
  Item_Type item_type_;
  Item_Op op_;
};

/// The operator's SQL text with its blanks, or null when it has none.
BACKUP_SQL_API char const* op_to_sql(Item_SQL::Item_Op op);

/// Base of the conditions on a column.
class BACKUP_SQL_API Key_Item_SQL : public Item_SQL {
public:
  /// `lower_case` asks for a comparison in lower case. Only `KV_Item_SQL` with a text value obeys it.
  enum Flags : std::uint32_t { no_flags = 0, lower_case = 1 };

  Key_Item_SQL(Item_Type type, Item_Op op, std::string const& key, unsigned int flags);
  ~Key_Item_SQL() override;

  /// Quoted.
  std::string const& key() const;
  unsigned int flags() const;

  /// Puts backticks around each part of a dotted key that has none yet: t.name becomes `t`.`name`. An empty part is
  /// dropped with its point.
  static std::string quote_key(std::string const& key);

private:
  unsigned int flags_;
  std::string key_;
};

/// "`key` IS NULL" or "`key` IS NOT NULL".
class BACKUP_SQL_API Null_Item_SQL : public Key_Item_SQL {
public:
  Null_Item_SQL(std::string const& key, bool is_null);
  ~Null_Item_SQL() override;

  void get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const override;

private:
  bool is_own_class() const override;
  void write_sql(backup::SQL_Writer& out) const override;
};

/// "`key` IN (...)" or "`key` NOT IN (...)", of a list or a statement.
///
/// A list is written as literals, not bound: texts by `Quote`, integers and reals in decimal, booleans as 1 and 0, null
/// as NULL, objects and arrays as quoted compact JSON. A real that is no number has
/// no literal: leave it out. An empty list is the constant "0" for IN, "1" for NOT IN.
/// A secret text is refused with a critical log record: nothing is written for a first element, and a later one repeats
/// the literal before it.
class BACKUP_SQL_API In_Item_SQL : public Key_Item_SQL {
public:
  /// `hex` writes texts as hexadecimal literals, x'0a1b'. The flags are stored and have no effect.
  In_Item_SQL(std::string const& key, std::vector<json_spirit::Value> const& values, bool in, bool hex,
              unsigned int flags);
  /// The list is the object's member names.
  In_Item_SQL(std::string const& key, json_spirit::Object const& values, bool in, bool hex);
  /// Keeps the address of `sub`, which must outlive every rendering.
  In_Item_SQL(std::string const& key, SQL const& sub, bool in);
  In_Item_SQL(std::string const& key, SQL const&& sub, bool in) = delete;
  ~In_Item_SQL() override;

  void get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const override;

  /// The list; empty in the form with a statement.
  std::vector<json_spirit::Value> const& value() const;

private:
  bool is_own_class() const override;
  void write_sql(backup::SQL_Writer& out) const override;
  void write_list(backup::SQL_Writer& out) const;

  std::vector<json_spirit::Value> values_;
  SQL const* sub_statement_;
  bool hex_;
};

/// Two texts, kept by pointer. Deliberately renders as empty text ("()" in a filter).
class BACKUP_SQL_API Binary_Item_SQL : public Item_SQL {
public:
  Binary_Item_SQL(Item_Op op, char const* left, char const* right);
  ~Binary_Item_SQL() override;

private:
  SQL left_;
  SQL right_;
};

/// A column compared with a bound value: "`key`=:1".
///
/// With the flag `lower_case` and a text value: "LOWER(`key`)=:1", bound to the text in lower case by the global
/// locale. A secret text becomes plain text there.
class BACKUP_SQL_API KV_Item_SQL : public Key_Item_SQL {
public:
  KV_Item_SQL(Item_Op op, std::string const& key, Binding_Value const& value, unsigned int flags);
  KV_Item_SQL(Item_Op op, std::string const& key, Binding_Value&& value, unsigned int flags);
  ~KV_Item_SQL() override;

  void get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const override;

  Binding_Value const& value() const;
  void value(Binding_Value const& value);

private:
  bool is_own_class() const override;
  void write_sql(backup::SQL_Writer& out) const override;

  Binding_Value value_;
};

/// A column compared with the 16 bytes of a uuid, or with no bytes when the text is no uuid.
class BACKUP_SQL_API Key_UUID_Item_SQL : public KV_Item_SQL {
public:
  Key_UUID_Item_SQL(Item_Op op, std::string const& key, std::string const& uuid);
  ~Key_UUID_Item_SQL() override;

private:
  bool is_own_class() const override;
};

/// A column compared with a statement that the item owns and the caller fills: "`key` IN (SELECT ...)".
class BACKUP_SQL_API Key_SQL_Item_SQL : public Key_Item_SQL {
public:
  /// Makes an empty statement of the class for `type`. When memory is short, the item renders as empty text.
  Key_SQL_Item_SQL(SQL::Type type, Item_Op op, std::string const& key);
  ~Key_SQL_Item_SQL() override;

  void get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const override;

  ACE_Intrusive_Auto_Ptr<SQL> const& sql() const;

private:
  bool is_own_class() const override;
  void write_sql(backup::SQL_Writer& out) const override;

  ACE_Intrusive_Auto_Ptr<SQL> sql_;
};

/// A bound value compared with a statement that the item owns and the caller fills: ":1 IN (SELECT ...)". With
/// `sql_first` "(SELECT ...)>:1"; then the statement's parameters have the lower numbers.
class BACKUP_SQL_API Val_SQL_Item_SQL : public Item_SQL {
public:
  Val_SQL_Item_SQL(SQL::Type type, Item_Op op, Binding_Value const& value, bool sql_first);
  ~Val_SQL_Item_SQL() override;

  void get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const override;

  ACE_Intrusive_Auto_Ptr<SQL> const& sql() const;

private:
  bool is_own_class() const override;
  void write_sql(backup::SQL_Writer& out) const override;

  Binding_Value value_;
  ACE_Intrusive_Auto_Ptr<SQL> sql_;
  bool sql_first_;
};
