#pragma once

#include <ace/Atomic_Op.h>
#include <ace/Intrusive_Auto_Ptr.h>
#include <ace/Thread_Mutex.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "backup/runtime/secure_memory.h"
#include "backup/utils/sql/binding_value.h"
#include "backup/utils/sql/sql_export.h"
#include "backup/utils/sql/sql_text.h"
#include "json_spirit/json_spirit.h"

namespace backup {
class SQL_Writer;
}

/// Base of everything that renders itself as SQL text, and by itself a plain text fragment.
///
/// Rendering is const, may be repeated and always gives the same names: ":1", ":2", ... in text order, counted from
/// each top-level call. Names bound with `bind` are merged in after the object that holds them has rendered, so they
/// replace generated values of the same name. An object is used by one thread at a time; only the reference count is
/// atomic.
///
/// Lifetime: a text set with `is_static` true is kept by pointer and must outlive every rendering. Shared objects live
/// under ACE_Intrusive_Auto_Ptr<SQL>; others are destroyed by their creator as usual.
class BACKUP_SQL_API SQL {
public:
  enum Type : std::uint32_t {
    TYPE_RAW = 0,
    TYPE_SELECT = 1,
    TYPE_INSERT = 2,
    TYPE_UPDATE = 3,
    TYPE_DELETE = 4,
    TYPE_FILTER = 5,
    TYPE_ITEM = 6,
    TYPE_UNION = 7
  };

  /// The dialect of a rendering. Nothing tests for DB_NONE: it takes the form of any value that is not tested for.
  enum Database_Type : std::uint32_t { DB_NONE = 0, DB_MYSQL = 1, DB_SQLITE = 2 };

  SQL(char const* sql, Type type, bool is_static);
  /// Like assignment; the copy's reference count starts at 0.
  SQL(SQL const& other);
  virtual ~SQL();

  /// To empty text, no count text and no bindings; the type stays.
  virtual void clear();
  /// True without text. Subclasses have their own notion.
  virtual bool empty() const;
  /// The rendering worker of each class: writes its whole text to `sql`, replacing what was there, adds one binding a
  /// generated parameter and advances `index`, the last number given. An embedded object is rendered with the
  /// four-argument `get_sql`, never with this, or its own bindings are lost.
  virtual void get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const;
  /// The same for the count query. The base wraps its text in a count of rows and says so in the debug log.
  virtual void get_count_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const;

  /// Copies own texts, shares the caller's, copies type and bindings; the reference count stays.
  SQL& operator=(SQL const& other);

  SQL& sql(char const* text, bool is_static);
  /// Replaces the whole text of the count query.
  SQL& count_sql(char const* text, bool is_static);
  /// May be null.
  char const* sql() const;
  char const* count_sql() const;
  Type type() const;

  /// Renders with named parameters. `bindings` is not cleared first. Returns `sql`. Logged when ACE::debug() is true.
  std::string& get_sql(Database_Type db, std::string& sql, Bindings& bindings) const;
  /// The step behind the others and for embedded objects: continues the numbering at `index` and logs nothing.
  std::string& get_sql(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const;
  /// Renders with "?" marks and appends their values to `values`, see Question_Mask_SQL_Converter, whose length error
  /// may pass through. An empty statement is reported to the log and gives the empty text and no values.
  std::string& get_sql(Database_Type db, std::string& sql, std::vector<Binding_Value>& values) const;

  /// The count query in the same three forms. With an own count text, ":limit" and ":offset" bound here are left out. A
  /// failure of the last form is logged once more.
  std::string& get_count_sql(Database_Type db, std::string& sql, Bindings& bindings) const;
  std::string& get_count_sql(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const;
  std::string& get_count_sql(Database_Type db, std::string& sql, std::vector<Binding_Value>& values) const;

  /// What stands around a SELECT to count its rows. The empty parentheses of "COUNT()" are deliberate.
  char const* get_count_sql_prefix(Database_Type db) const;
  char const* get_count_sql_suffix(Database_Type db) const;

  /// Binds a value under `name`, leading colon included, replacing an earlier one.
  SQL& bind(std::string const& name, Binding_Value const& value);
  /// Binds the member `key`, or nothing when `object` has none.
  SQL& bind(std::string const& name, json_spirit::Object const& object, std::string const& key);
  /// The same under ":" and the key.
  SQL& bind(json_spirit::Object const& object, std::string const& key);
  /// Bind the 16 bytes of a uuid text, or no bytes when it is none.
  SQL& bind_uuid(std::string const& name, char const* uuid);
  SQL& bind_uuid(std::string const& name, std::string const& uuid);
  SQL& bind_uuid(std::string const& name, Secure_String const& uuid);
  /// Binds nothing when `object` has no string `key`.
  SQL& bind_uuid(std::string const& name, json_spirit::Object const& object, std::string const& key);
  SQL& bind_uuid(json_spirit::Object const& object, std::string const& key);
  /// Bind the bytes of hexadecimal text, or no bytes when it is none: plain bytes for secret text too, deliberately.
  SQL& bind_hex(std::string const& name, char const* hex);
  SQL& bind_hex(std::string const& name, std::string const& hex);
  SQL& bind_hex(std::string const& name, Secure_String const& hex);
  /// Binds a new uuid. When there is none to be had, says so in the log and binds nothing.
  SQL& bind_new_uuid(std::string const& name);
  SQL& unbind(std::string const& name);

  /// Log a rendered statement and its values at debug priority, a record a line, each cut to what a record holds.
  /// Secret texts are written in clear.
  static void log_sql(std::string const& sql, Bindings const& bindings);
  static void log_sql(std::string const& sql, std::vector<Binding_Value> const& values);

  /// The hooks of ACE_Intrusive_Auto_Ptr. Null does nothing; removing from a count of 0 does nothing.
  static void intrusive_add_ref(SQL* sql);
  static void intrusive_remove_ref(SQL* sql);

protected:
  /// True when exactly one reference is held.
  static bool is_sole_reference(SQL const& sql);

private:
  friend class backup::SQL_Writer;

  // How a class of the library is written where it stands: both for the same class, one line and one renderer. What a
  // program derives from it has them too, and is told apart by the first: it is written by its own get_sql_i.
  virtual bool is_own_class() const;
  virtual void write_sql(backup::SQL_Writer& out) const;
  bool has_bindings() const { return extras_ != nullptr && !extras_->bindings.empty(); }
  void merge_bindings(Bindings& bindings, bool without_paging) const;

  // What few objects have: most are parts of a filter, of which a request may ask for many.
  struct Extras {
    backup::SQL_Text sql;  // an own copy
    backup::SQL_Text count_sql;
    Bindings bindings;
  };
  Extras& extras();

  char const* sql_;
  std::unique_ptr<Extras> extras_;
  ACE_Atomic_Op<ACE_Thread_Mutex, long> ref_count_;
  Type type_;  // last: what a subclass has first may share its word
};
