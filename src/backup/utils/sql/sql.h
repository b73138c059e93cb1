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

/// Base of everything that renders as SQL text. An object of this class is a plain text fragment.
///
/// Rendering is const, may be repeated and always gives the same names: ":1", ":2", ... in text order; each top-level
/// call begins at 1. Names bound with `bind` are merged in after their object has rendered, so they replace generated
/// values of the same name. Only one thread at a time may use an object; only the reference count is atomic.
///
/// Lifetime: a text set with `is_static` true is kept by pointer and must outlive every rendering.
/// ACE_Intrusive_Auto_Ptr<SQL> holds shared objects; their creator destroys others as usual.
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

  /// The dialect of a rendering. DB_NONE is rendered like any unknown number.
  enum Database_Type : std::uint32_t { DB_NONE = 0, DB_MYSQL = 1, DB_SQLITE = 2 };

  SQL(char const* sql, Type type, bool is_static);
  /// Copies like assignment; the copy's reference count starts at 0.
  SQL(SQL const& other);
  virtual ~SQL();

  /// Drops the text, the count text and the bindings; the type stays.
  virtual void clear();
  /// True without text. Subclasses define their own meaning.
  virtual bool empty() const;
  /// Renders for each class: replaces `sql` by the object's whole text, adds one binding for each generated parameter
  /// and advances `index`, the last number used. Render an embedded object with the four-argument `get_sql`, never with
  /// this: this leaves out the names bound with `bind`.
  virtual void get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const;
  /// The same for the count query. The base wraps its text in a count of rows and writes that to the debug log.
  virtual void get_count_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const;

  /// Copies own texts, type and bindings, and shares the caller's texts; the reference count stays.
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
  /// For embedded objects; the other forms call it too. Continues the numbering at `index` and logs nothing.
  std::string& get_sql(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const;
  /// Renders with "?" marks and appends their values to `values`. May throw the length error of
  /// Question_Mask_SQL_Converter. An empty statement is logged and gives the empty text and no values.
  std::string& get_sql(Database_Type db, std::string& sql, std::vector<Binding_Value>& values) const;

  /// The count query in the same three forms. With a count text of its own, the bindings ":limit" and ":offset" are
  /// left out. A failure of the last form is logged a second time.
  std::string& get_count_sql(Database_Type db, std::string& sql, Bindings& bindings) const;
  std::string& get_count_sql(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const;
  std::string& get_count_sql(Database_Type db, std::string& sql, std::vector<Binding_Value>& values) const;

  /// The text before and after a SELECT that counts its rows. The empty parentheses of "COUNT()" are deliberate.
  char const* get_count_sql_prefix(Database_Type db) const;
  char const* get_count_sql_suffix(Database_Type db) const;

  /// Binds a value to `name`, which includes the leading colon. Replaces an earlier value.
  SQL& bind(std::string const& name, Binding_Value const& value);
  /// Binds the member `key`, or nothing when `object` has none.
  SQL& bind(std::string const& name, json_spirit::Object const& object, std::string const& key);
  /// The same; the name is ":" and the key.
  SQL& bind(json_spirit::Object const& object, std::string const& key);
  /// Bind the 16 bytes of a uuid text, or no bytes for any other text.
  SQL& bind_uuid(std::string const& name, char const* uuid);
  SQL& bind_uuid(std::string const& name, std::string const& uuid);
  SQL& bind_uuid(std::string const& name, Secure_String const& uuid);
  /// Binds nothing when `object` has no string `key`.
  SQL& bind_uuid(std::string const& name, json_spirit::Object const& object, std::string const& key);
  SQL& bind_uuid(json_spirit::Object const& object, std::string const& key);
  /// Bind the bytes of hexadecimal text, or no bytes for any other text. Secret text gives plain bytes too,
  /// deliberately.
  SQL& bind_hex(std::string const& name, char const* hex);
  SQL& bind_hex(std::string const& name, std::string const& hex);
  SQL& bind_hex(std::string const& name, Secure_String const& hex);
  /// Binds a new uuid. When the system gives no random bytes, logs that and binds nothing.
  SQL& bind_new_uuid(std::string const& name);
  SQL& unbind(std::string const& name);

  /// Log a rendered statement and its values at debug priority: one record for each line, cut where a record is full.
  /// Secret texts are written in clear.
  static void log_sql(std::string const& sql, Bindings const& bindings);
  static void log_sql(std::string const& sql, std::vector<Binding_Value> const& values);

  /// For ACE_Intrusive_Auto_Ptr. They ignore null, and a removal at count 0.
  static void intrusive_add_ref(SQL* sql);
  static void intrusive_remove_ref(SQL* sql);

protected:
  /// True when exactly one reference is held.
  static bool is_sole_reference(SQL const& sql);

  /// A step of an assignment: takes all from `copied`, a copy of the assigned object, and gives it what this object
  /// had, which ends with it. So the assigned object may be a part of this one. Throws only std::bad_alloc, before
  /// anything has changed. Own texts stay here unless others replace them: a text of the copy may point into them.
  void take(SQL& copied);

private:
  friend class backup::SQL_Writer;

  // Each class of the library says whether an object is of exactly that class, and how it is written in place. A
  // program's subclass inherits both: the first is false for its objects, so their own `get_sql_i` renders them.
  virtual bool is_own_class() const;
  virtual void write_sql(backup::SQL_Writer& out) const;
  bool has_own_text() const;
  bool has_bindings() const { return extras_ != nullptr && !extras_->bindings.empty(); }
  void merge_bindings(Bindings& bindings, bool without_paging) const;

  // Few objects have these. Most objects are parts of a filter, and a request may ask for many.
  struct Extras {
    backup::SQL_Text sql;  // an own copy
    backup::SQL_Text count_sql;
    Bindings bindings;
  };
  Extras& extras();

  char const* sql_;
  std::unique_ptr<Extras> extras_;
  ACE_Atomic_Op<ACE_Thread_Mutex, long> ref_count_;
  Type type_;  // last: a subclass's first member may share its word
};
