#include "backup/utils/sql/item_sql.h"

#include <algorithm>
#include <cstring>
#include <locale>

#include "backup/runtime/uuid.h"
#include "backup/utils/sql/delete_sql.h"
#include "backup/utils/sql/detail/quoted_text.h"
#include "backup/utils/sql/detail/sql_log.h"
#include "backup/utils/sql/detail/sql_new.h"
#include "backup/utils/sql/detail/sql_writer.h"
#include "backup/utils/sql/filter_sql.h"
#include "backup/utils/sql/insert_sql.h"
#include "backup/utils/sql/key2_value.h"
#include "backup/utils/sql/quote.h"
#include "backup/utils/sql/select_sql.h"
#include "backup/utils/sql/union_sql.h"
#include "backup/utils/sql/update_sql.h"

using backup::SQL_Writer;

namespace {

constexpr char const* source_file = "src/backup/utils/sql/item_sql";

Key2_Value_T<Item_SQL::Item_Op> const op_names[] = {
    {"EQ", 2, Item_SQL::OP_EQ},     {"NE", 2, Item_SQL::OP_NE}, {"LT", 2, Item_SQL::OP_LT}, {"LE", 2, Item_SQL::OP_LE},
    {"GT", 2, Item_SQL::OP_GT},     {"GE", 2, Item_SQL::OP_GE}, {"NL", 2, Item_SQL::OP_NL}, {"NN", 2, Item_SQL::OP_NN},
    {"IN", 2, Item_SQL::OP_IN},     {"NI", 2, Item_SQL::OP_NI}, {"LK", 2, Item_SQL::OP_LK}, {"NK", 2, Item_SQL::OP_NK},
    {nullptr, 0, Item_SQL::OP_NONE}};

// Calls `use` with the operator's text as a literal, so the compiler knows its length. False for an operator without
// text.
template <class Use>
bool with_text(Item_SQL::Item_Op op, Use use) {
  switch (op) {
    case Item_SQL::OP_EQ: use("="); return true;
    case Item_SQL::OP_NE: use("!="); return true;
    case Item_SQL::OP_LT: use("<"); return true;
    case Item_SQL::OP_LE: use("<="); return true;
    case Item_SQL::OP_GT: use(">"); return true;
    case Item_SQL::OP_GE: use(">="); return true;
    case Item_SQL::OP_IN: use(" IN "); return true;
    case Item_SQL::OP_NI: use(" NOT IN "); return true;
    case Item_SQL::OP_LK: use(" LIKE "); return true;
    case Item_SQL::OP_NK: use(" NOT LIKE "); return true;
    default: return false;
  }
}

// The same, and logs an operator without text.
template <class Use>
bool with_text_or_report(Item_SQL::Item_Op op, Use use) {
  return with_text(op, use) || sql_log::check_argument({source_file}, nullptr, "op_sql");
}

// Writes the key, with `lower` in LOWER( ), and the operator. Without a key or an operator's text: false, nothing
// written.
bool write_key_and_operator(SQL_Writer& out, Item_SQL::Item_Op op, std::string const& key, bool lower) {
  if (key.empty()) return false;
  if (!lower && op != Item_SQL::OP_DEC) {
    return with_text_or_report(op, [&](auto const& text) { out.write(key, text); });
  }
  if (op != Item_SQL::OP_DEC) {
    return with_text_or_report(op, [&](auto const& text) { out.write("LOWER(", key, ")", text); });
  }
  if (lower) {
    out.write("LOWER(", key, ")=", key, "-");
  } else {
    out.write(key, "=", key, "-");
  }
  return true;
}

// A text value in lower case. Secret text becomes plain text here.
std::string lower_text(Binding_Value const& value) {
  std::string text;
  if (value.type() == Binding_Value::str_type) {
    text = value.val().get_str();
  } else {
    Secure_String const& secret = value.val().get_secure_str();
    text.assign(secret.data(), secret.size());  // by iterators it would leave a copy of the secret behind
  }
  std::locale const locale;
  auto const& types = std::use_facet<std::ctype<char>>(locale);
  for (char& c : text) c = types.tolower(c);  // a program's facet may define this form only
  return text;
}

// A new empty statement for an item. When memory is short, null with errno ENOMEM.
ACE_Intrusive_Auto_Ptr<SQL> new_sub_statement(SQL::Type type) {
  ACE_Intrusive_Auto_Ptr<SQL> owner;
  without_throwing([&]() -> SQL* {
    switch (type) {
      case SQL::TYPE_SELECT: return new_sql<Select_SQL>(owner, nullptr, nullptr);
      case SQL::TYPE_INSERT: return new_sql<Insert_SQL>(owner, nullptr);
      case SQL::TYPE_UPDATE: return new_sql<Update_SQL>(owner, nullptr);
      case SQL::TYPE_DELETE: return new_sql<Delete_SQL>(owner, nullptr);
      case SQL::TYPE_FILTER: return new_sql<And_Filter_SQL>(owner);
      case SQL::TYPE_UNION: return new_sql<Union_SQL>(owner, Union_SQL::distinct);
      default: return new_sql<SQL>(owner, nullptr, type, true);
    }
  });
  return owner;
}

// Writes one list element as a literal. The element is no secure string.
void write_literal(SQL_Writer& out, json_spirit::Value const& value, bool hex) {
  switch (value.type()) {
    case json_spirit::str_type:
      if (hex) out << 'x';
      backup::append_quoted(out, value.get_str());
      break;
    case json_spirit::bool_type: out << (value.get_bool() ? '1' : '0'); break;
    case json_spirit::int_type:
      if (value.is_uint64()) {
        out.number(value.get_uint64());
      } else {
        out.number(value.get_int64());
      }
      break;
    case json_spirit::real_type: out.number(value.get_real()); break;
    case json_spirit::null_type: out << "NULL"; break;
    default: {
      json_spirit::JSON_Dump const json(value, false);
      backup::append_quoted(out, {json.c_str(), json.size()});
    }
  }
}

std::vector<json_spirit::Value> member_names(json_spirit::Object const& object) {
  std::vector<json_spirit::Value> names;
  names.reserve(object.size());
  for (auto const& member : object) names.emplace_back(member.first);
  return names;
}

}  // namespace

Item_SQL::Item_SQL(Item_Type type, Item_Op op) : SQL(nullptr, TYPE_ITEM, true), item_type_(type), op_(op) {}

Item_SQL::~Item_SQL() = default;

void Item_SQL::clear() {}

Item_SQL::Item_Type Item_SQL::item_type() const { return item_type_; }
Item_SQL::Item_Op Item_SQL::op() const { return op_; }

Item_SQL::Item_Op Item_SQL::op_name_to_value(char const* name, unsigned long long length) {
  if (name == nullptr || *name == '\0' || length == 0) return OP_NONE;
  return Key2_Value_T<Item_Op>::find(op_names, name, length).value;
}

char const* Item_SQL::op_value_to_name(Item_Op op) {
  Key2_Value_T<Item_Op> const* entry = op_names;
  while (entry->key != nullptr && entry->value != op) ++entry;
  return entry->key;
}

char const* op_to_sql(Item_SQL::Item_Op op) {
  char const* found = nullptr;
  with_text(op, [&found](auto const& text) { found = text; });
  return found;
}

Key_Item_SQL::Key_Item_SQL(Item_Type type, Item_Op op, std::string const& key, unsigned int flags)
    : Item_SQL(type, op), flags_(flags), key_(quote_key(key)) {}

Key_Item_SQL::~Key_Item_SQL() = default;

std::string const& Key_Item_SQL::key() const { return key_; }
unsigned int Key_Item_SQL::flags() const { return flags_; }

std::string Key_Item_SQL::quote_key(std::string const& key) {
  bool const is_plain = !key.empty() && key.front() != '`' && key.back() != '`' && key.find('.') == std::string::npos;
  if (is_plain) {
    std::string quoted(key.size() + 2, '`');
    std::memcpy(quoted.data() + 1, key.data(), key.size());
    return quoted;
  }
  std::string quoted;
  quoted.reserve(key.size() + 4);
  for (std::size_t begin = 0; begin < key.size();) {
    std::size_t const end = std::min(key.find('.', begin), key.size());
    if (end > begin) {
      if (!quoted.empty()) quoted += '.';
      if (key[begin] != '`') quoted += '`';
      quoted.append(key, begin, end - begin);
      if (key[end - 1] != '`') quoted += '`';
    }
    begin = end + 1;
  }
  return quoted;
}

Null_Item_SQL::Null_Item_SQL(std::string const& key, bool is_null)
    : Key_Item_SQL(ITEM_NULL, is_null ? OP_NL : OP_NN, key, no_flags) {}

Null_Item_SQL::~Null_Item_SQL() = default;

void Null_Item_SQL::get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const {
  SQL_Writer::render(*this, db, sql, bindings, index);
}

bool Null_Item_SQL::is_own_class() const { return backup::is_exactly<Null_Item_SQL>(*this); }

void Null_Item_SQL::write_sql(SQL_Writer& out) const {
  if (op() == OP_NN) {
    out.write(key(), " IS NOT NULL");
  } else {
    out.write(key(), " IS NULL");
  }
}

In_Item_SQL::In_Item_SQL(std::string const& key, std::vector<json_spirit::Value> const& values, bool in, bool hex,
                         unsigned int flags)
    : Key_Item_SQL(ITEM_IN, in ? OP_IN : OP_NI, key, flags), values_(values), sub_statement_(nullptr), hex_(hex) {}

In_Item_SQL::In_Item_SQL(std::string const& key, json_spirit::Object const& values, bool in, bool hex)
    : Key_Item_SQL(ITEM_IN, in ? OP_IN : OP_NI, key, no_flags),
      values_(member_names(values)),
      sub_statement_(nullptr),
      hex_(hex) {}

In_Item_SQL::In_Item_SQL(std::string const& key, SQL const& sub, bool in)
    : Key_Item_SQL(ITEM_IN, in ? OP_IN : OP_NI, key, no_flags), sub_statement_(&sub), hex_(false) {}

In_Item_SQL::~In_Item_SQL() = default;

void In_Item_SQL::get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const {
  SQL_Writer::render(*this, db, sql, bindings, index);
}

bool In_Item_SQL::is_own_class() const { return backup::is_exactly<In_Item_SQL>(*this); }

// `key`[ NOT] IN (<literal>,... | statement), or 0 or 1 for an empty list
void In_Item_SQL::write_sql(SQL_Writer& out) const {
  bool const negated = op() == OP_NI;
  if (sub_statement_ == nullptr && values_.empty()) {
    out << (negated ? '1' : '0');
    return;
  }
  out << key() << (negated ? " NOT IN (" : " IN (");
  if (sub_statement_ != nullptr) {
    out.part(*sub_statement_);
  } else {
    write_list(out);
  }
  out << ')';
}

// A secure string is not written. The literal before it is repeated; without one nothing is written.
void In_Item_SQL::write_list(SQL_Writer& out) const {
  std::size_t before = 0;
  std::size_t length = 0;
  out.list(values_, [&](json_spirit::Value const& value) {
    if (value.type() == json_spirit::secure_str_type) {
      sql_log::report({source_file}, LM_CRITICAL, 0, "String template not support secure string.\n");
      out << std::string(out.text().substr(before, length));
      return;
    }
    before = out.text().size();
    write_literal(out, value, hex_);
    length = out.text().size() - before;
  });
}

std::vector<json_spirit::Value> const& In_Item_SQL::value() const { return values_; }

Binary_Item_SQL::Binary_Item_SQL(Item_Op op, char const* left, char const* right)
    : Item_SQL(ITEM_BINARY, op), left_(left, TYPE_RAW, true), right_(right, TYPE_RAW, true) {}

Binary_Item_SQL::~Binary_Item_SQL() = default;

KV_Item_SQL::KV_Item_SQL(Item_Op op, std::string const& key, Binding_Value const& value, unsigned int flags)
    : Key_Item_SQL(ITEM_KV, op, key, flags), value_(value) {}

KV_Item_SQL::KV_Item_SQL(Item_Op op, std::string const& key, Binding_Value&& value, unsigned int flags)
    : Key_Item_SQL(ITEM_KV, op, key, flags), value_(std::move(value)) {}

KV_Item_SQL::~KV_Item_SQL() = default;

void KV_Item_SQL::get_sql_i(Database_Type db, std::string& sql, Bindings& bindings, unsigned long long& index) const {
  SQL_Writer::render(*this, db, sql, bindings, index);
}

bool KV_Item_SQL::is_own_class() const { return backup::is_exactly<KV_Item_SQL>(*this); }

// [LOWER(]`key`[)]<operator>:n
void KV_Item_SQL::write_sql(SQL_Writer& out) const {
  bool const lower = (flags() & lower_case) != 0 &&
                     (value_.type() == Binding_Value::str_type || value_.type() == Binding_Value::secure_str_type);
  if (!write_key_and_operator(out, op(), key(), lower)) return;
  if (lower) {
    out.param(Binding_Value(lower_text(value_)));
  } else {
    out.param(value_);
  }
}

Binding_Value const& KV_Item_SQL::value() const { return value_; }
void KV_Item_SQL::value(Binding_Value const& value) { value_ = value; }

Key_UUID_Item_SQL::Key_UUID_Item_SQL(Item_Op op, std::string const& key, std::string const& uuid)
    : KV_Item_SQL(op, key, Binding_Value(uuid_string_to_binary(uuid)), no_flags) {}

Key_UUID_Item_SQL::~Key_UUID_Item_SQL() = default;

bool Key_UUID_Item_SQL::is_own_class() const { return backup::is_exactly<Key_UUID_Item_SQL>(*this); }

Key_SQL_Item_SQL::Key_SQL_Item_SQL(SQL::Type type, Item_Op op, std::string const& key)
    : Key_Item_SQL(ITEM_KEY_SQL, op, key, no_flags), sql_(new_sub_statement(type)) {}

Key_SQL_Item_SQL::~Key_SQL_Item_SQL() = default;

void Key_SQL_Item_SQL::get_sql_i(Database_Type db, std::string& sql, Bindings& bindings,
                                 unsigned long long& index) const {
  SQL_Writer::render(*this, db, sql, bindings, index);
}

bool Key_SQL_Item_SQL::is_own_class() const { return backup::is_exactly<Key_SQL_Item_SQL>(*this); }

// `key`<operator>(statement)
void Key_SQL_Item_SQL::write_sql(SQL_Writer& out) const {
  if (sql_.get() == nullptr) return;
  if (write_key_and_operator(out, op(), key(), false)) out.sub_statement(*sql_);
}

ACE_Intrusive_Auto_Ptr<SQL> const& Key_SQL_Item_SQL::sql() const { return sql_; }

Val_SQL_Item_SQL::Val_SQL_Item_SQL(SQL::Type type, Item_Op op, Binding_Value const& value, bool sql_first)
    : Item_SQL(ITEM_VAL_SQL, op), value_(value), sql_(new_sub_statement(type)), sql_first_(sql_first) {}

Val_SQL_Item_SQL::~Val_SQL_Item_SQL() = default;

void Val_SQL_Item_SQL::get_sql_i(Database_Type db, std::string& sql, Bindings& bindings,
                                 unsigned long long& index) const {
  SQL_Writer::render(*this, db, sql, bindings, index);
}

bool Val_SQL_Item_SQL::is_own_class() const { return backup::is_exactly<Val_SQL_Item_SQL>(*this); }

// (statement)<operator>:n | :n<operator>(statement)
void Val_SQL_Item_SQL::write_sql(SQL_Writer& out) const {
  if (sql_.get() == nullptr) return;
  bool const is_decrement = op() == OP_DEC;
  if (is_decrement) out.use_names();  // the first operand is written twice
  std::size_t const start = out.position();
  if (sql_first_) {
    out.sub_statement(*sql_);
  } else {
    out.param(value_);
  }
  if (is_decrement) {
    std::string const key(out.text().substr(start));
    out << '=' << key << '-';
  } else if (!with_text_or_report(op(), [&](auto const& text) { out << text; })) {
    out.truncate(start);
    return;
  }
  if (sql_first_) {
    out.param(value_);
  } else {
    out.sub_statement(*sql_);
  }
}

ACE_Intrusive_Auto_Ptr<SQL> const& Val_SQL_Item_SQL::sql() const { return sql_; }
static_assert(sizeof(KV_Item_SQL) <= 120);
