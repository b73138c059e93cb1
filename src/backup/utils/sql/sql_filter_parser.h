#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <string_view>

#include "backup/utils/sql/filter_sql.h"
#include "backup/utils/sql/item_sql.h"
#include "backup/utils/sql/key2_value.h"
#include "backup/utils/sql/sql_export.h"
#include "json_spirit/json_spirit.h"

class Select_SQL;
class Where_SQL;
namespace backup::request_text {
struct Operand;
class Read_Allowance;
}  // namespace backup::request_text

/// Turns the parameters of a request into conditions of a filter and into sorting and paging for a SELECT. Safe for a
/// stranger's input: only keys of the caller's table become conditions, under the columns that the table names, and
/// every value is bound or quoted.
///
/// A key is "sort", "order", "limit" or "offset"; or "AND" or "OR", whose value (an object, or a query string) holds
/// the pairs to join; or `<OP>_<key>` with a two-letter operator name; or `<key>`, which means equality. Keys that the
/// table lacks are ignored. A pair with an unusable value is logged and left out; the others go on. When a member of a
/// group fails, the members before it stay. When memory is short, std::bad_alloc is thrown; the filter then has some of
/// the conditions only, so it must not be used.
///
/// Text of an integer: a sign and digits up to the first other character, no blanks before; 2^63-1 when it does not
/// fit, even for a negative number; 0 without digits. Text of a boolean: false for exactly "0". Text of a list: the
/// pieces between commas; empty ones are dropped.
///
/// Lifetime: the filter and the table are kept by pointer and must outlive the parser. A statement that is cleared or
/// given another filter drops its filter: make a new parser then. Names and values are copied into the conditions.
///
/// Cost: linear in the request; groups of any depth take no recursion. A group in a query string whose text has escapes
/// is read again for each level inside it. A request may have 16 MiB plus 256 times the text of its groups read so;
/// pairs beyond that fail.
class BACKUP_SQL_API SQL_Filter_Parser {
public:
  /// The meaning of an allowed key. A table ends with an entry whose key is null and whose value is all zero.
  struct Filter {
    enum : unsigned int { TYPE_BOOL = 1, TYPE_INT = 2, TYPE_TEXT = 3, TYPE_UUID = 4 };
    enum : unsigned int { COLUMN_IS_KEY = 0, COLUMN_IS_NAME = 1, COLUMN_IS_NAME_DOT_KEY = 2 };
    enum : unsigned int { FLAG_LOWER_CASE = 2 };

    char const* name;        ///< a column or a qualifier, as `name_mode` says
    unsigned int type;       ///< 0: not allowed; any number not named above takes the value as it comes
    unsigned int name_mode;  ///< any number not named above leaves the column empty
    unsigned int flags;      ///< FLAG_LOWER_CASE compares texts in lower case
  };
  using Filters = Key2_Value_T<Filter>;

  /// For `parse`.
  enum Parse_Flags : std::uint32_t {
    afresh = 0,     ///< the filter and the controls are cleared first
    accumulate = 1  ///< conditions and controls are added to what is there
  };

  enum Control_Kind : std::uint32_t {
    NO_CONTROL = 0,   ///< a condition, a group or nothing
    SORT_KEYS = 1,    ///< a list of allowed keys
    SORT_ORDERS = 2,  ///< a text
    ROW_NUMBER = 3    ///< an integer
  };

  /// The sorting and paging of a request.
  class BACKUP_SQL_API Controls {
  public:
    Controls();

    /// Set a control. Null takes it away and keeps the stored value. Always true.
    bool sort(std::string const* keys);
    bool order(std::string const* directions);
    bool offset(long long const* rows);
    bool limit(long long const* rows);
    /// Null for a control that is not set.
    std::string const* sort() const;
    std::string const* order() const;
    long long const* offset() const;
    long long const* limit() const;
    /// Takes all controls away.
    void clear();

  private:
    enum : unsigned int { SORT = 1, OFFSET = 2, LIMIT = 4, ORDER = 8 };

    template <class T>
    bool store(unsigned int control, T& field, T const* value);
    template <class T>
    T const* stored(unsigned int control, T const& field) const;

    unsigned int set_ = 0;
    std::string sort_;
    std::string order_;
    long long offset_ = 0;
    long long limit_ = -1;
  };

  /// Without target and table: reads "order", "limit" and "offset" only.
  SQL_Filter_Parser();
  /// The target is `where.and_filter()`.
  SQL_Filter_Parser(Where_SQL& where, Filters const* filters);
  /// Both may be null. Without target or table there are no conditions; without a table there is no "sort".
  SQL_Filter_Parser(Filter_SQL* filter, Filters const* filters);
  explicit SQL_Filter_Parser(Filters const* filters);

  Controls const& controls() const;
  /// The kind of value that a control takes; `NO_CONTROL` for any other key.
  static Control_Kind control_kind(std::string_view key);

  /// Handle all pairs, in the order of the keys. Always true; pairs that failed are logged by key and value.
  bool parse(std::map<std::string, std::string> const& params, unsigned int flags);
  bool parse(json_spirit::Object const& params, unsigned int flags);

  /// Applies the controls that are set: sort keys, orders, limit, offset. Always true.
  bool control(Select_SQL& select) const;

  /// Turns the pairs of a query string into the JSON object that `parse` takes. The table gives the types of values;
  /// keys that it lacks keep their text. Keys of an object are unique: of two groups with one name in a nested query
  /// string only the last stays, whereas `parse` of the pairs adds both.
  json_spirit::Object convert_qs_to_params(std::map<std::string, std::string> const& params) const;

  /// The functions above call these.
  /// False when the key is no control, or cannot use the value.
  bool parse_control_i(std::string const& key, json_spirit::Value const& value);
  /// Adds the condition or group to `target`. False when the key cannot use the value. False when a member of a group
  /// fails: the members before it stay, those after it are left out.
  bool parse_filter_i(std::string const& key, json_spirit::Value const& value, Filter_SQL* target);
  /// The operator of a key. With an operator prefix, sets `prefix_length` to 3 unless it is null.
  Item_SQL::Item_Op parse_op_key(std::string const& key, unsigned long long* prefix_length) const;
  bool convert_kv_to_params(std::string const& key, std::string const& value, json_spirit::Object& params) const;

private:
  using Operand = backup::request_text::Operand;
  using Read_Allowance = backup::request_text::Read_Allowance;

  // The parts of a key; `filter` has type 0 when the key is not allowed.
  struct Allowed_Key {
    Item_SQL::Item_Op op;
    std::string_view key;
    Filter const& filter;
  };

  void start(unsigned int flags);
  bool parse_pair(std::string const& key, Operand const& value, Read_Allowance& allowance);
  bool parse_control(std::string const& key, Operand const& value);
  bool parse_filter(std::string const& key, Operand const& value, Filter_SQL* target, Read_Allowance& allowance);
  bool convert_pair(std::string const& key, std::string const& value, json_spirit::Object& params,
                    Read_Allowance& allowance) const;
  bool parse_condition(std::string const& key, Operand const& value, Filter_SQL& target) const;
  Allowed_Key allowed(std::string const& key) const;
  json_spirit::Value convert_value(std::string const& key, std::string const& text) const;

  Filter_SQL* filter_;
  Controls controls_;
  Filters const* filters_;
};
