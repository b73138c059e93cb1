#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cstdlib>
#include <iostream>
#include <limits>
#include <map>
#include <random>
#include <regex>
#include <sstream>
#include <string_view>
#include <tuple>
#include <vector>

#include "backup/runtime/uuid.h"
#include "backup/utils/sql/insert_sql.h"
#include "backup/utils/sql/json_filter_helpers.h"
#include "backup/utils/sql/select_sql.h"
#include "backup/utils/sql/sql_filter_parser.h"
#include "support/databases.h"
#include "support/log_capture.h"
#include "support/render.h"

namespace {

using backup::Store;
using backup::Store_Error;

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

enum Type : unsigned int { BOOL = 1, INTEGER, TEXT, UUID, REAL };  // as the request parser has them
using Cells = std::array<Value, 6>;  // by type; null for NULL, a uuid as its 32 lower-case digits

using Column = SQL_Filter_Parser::Filters;
constexpr auto is_name = SQL_Filter_Parser::Filter::COLUMN_IS_NAME;
Column const columns[] = {{"b", 1, {"f.b", BOOL, is_name, 0}},
                          {"n", 1, {"f.n", INTEGER, is_name, 0}},
                          {"t", 1, {"f.t", TEXT, is_name, 0}},
                          {"host_uuid", 9, {"f.host_uuid", UUID, is_name, 0}},
                          {"r", 1, {"f.r", REAL, is_name, 0}},
                          {"name", 4, {"f.t", TEXT, is_name, SQL_Filter_Parser::Filter::FLAG_LOWER_CASE}},
                          {nullptr, 0, {nullptr, 0, 0, 0}}};

enum Op { EQ = 1, NE, LT, LE, GT, GE, DEC, NL, NN, IN, NI, LK, NK, SEARCH, ALL, ANY };
char const* const names[] = {"",   "EQ", "NE", "LT", "LE", "GT", "GE",  "",  "NL",
                             "NN", "IN", "NI", "LK", "NK", "",   "AND", "OR"};

Value const largest = std::numeric_limits<unsigned long long>::max();

// A condition as plain data. The tests make from it its meaning, a filter, a document and requests.
struct Tree {
  Op op;
  std::vector<Tree> members = {};  // of ALL and ANY
  Column const* column = nullptr;
  std::vector<Value> operands = {};
};

bool is_group(Tree const& tree) { return tree.op == ALL || tree.op == ANY; }
bool is_list(Tree const& tree) { return tree.op == IN || tree.op == NI; }
bool is_null_test(Tree const& tree) { return tree.op == NL || tree.op == NN; }
bool is_pattern(Tree const& tree) { return tree.op == LK || tree.op == NK; }
bool is_lowered(Tree const& tree) { return tree.column->value.flags != 0 && !is_list(tree) && tree.op != SEARCH; }
unsigned int type_of(Tree const& tree) { return tree.column->value.type; }
bool is_text(Value const& value) { return value.type() == json_spirit::str_type; }

class Random {
public:
  explicit Random(unsigned long long seed) : engine_(seed) {}

  Cells cells() {
    Cells cells;
    for (Type const type : {BOOL, INTEGER, TEXT, UUID, REAL}) cells[type] = one_in(6) ? Value() : value(type);
    return cells;
  }

  // A group whose operands are often cells of `rows`. SQLite's parser takes about 30 levels.
  Tree tree(std::vector<Cells> const& rows) { return group(one_in(16) ? 12 : 4, rows); }

private:
  std::size_t below(std::size_t end) { return static_cast<std::size_t>(engine_() % end); }
  bool one_in(std::size_t number) { return below(number) == 0; }
  template <class Choices>
  auto const& one_of(Choices const& choices) {
    return choices[below(std::size(choices))];
  }

  std::string text() {
    static char const* const pieces[] = {"a", "A",  "b", "B", "'", "\\", "%", "_", "|",           "|b", ":1", ":2",
                                         "?", "\"", ",", " ", "&", "=+", "ä", "Ä", ":__search_1", "😀",  "€"};
    std::string joined;
    for (std::size_t rest = below(4); rest > 0; --rest) joined += one_of(pieces);
    return joined;
  }

  Value value(unsigned int type) {
    using Limits = std::numeric_limits<long long>;
    static Value const integers[] = {Limits::min(), Limits::min() + 1, -1, 0, 1, 10, Limits::max() - 1, Limits::max()};
    static Value const reals[] = {-1.5, 0.0, 0.1, 0.5, 3.0, 1e10, 5e-324, std::numeric_limits<double>::max()};
    if (type == INTEGER) return one_of(integers);
    if (type == REAL) return one_of(reals);
    if (type == BOOL) return one_in(2);
    if (type == UUID) return one_of(std::string_view("07f8")) + std::string(30, 'c') + one_of(std::string_view("0f"));
    return text();
  }

  // The upper levels of a deep group are narrow.
  Tree group(unsigned int depth, std::vector<Cells> const& rows) {
    Tree tree{one_in(2) ? ALL : ANY};
    std::size_t groups = depth > 4 ? 1 : depth > 0 ? below(3) : 0;
    for (std::size_t rest = groups + below(4); rest > 0; --rest) {
      bool const next_is_group = below(rest) < groups;
      tree.members.push_back(next_is_group ? group(depth - 1, rows) : condition(tree.members.size(), rows));
      if (next_is_group) --groups;
    }
    return tree;
  }

  // When two filters have a search at the same place, both find what the later one looks for.
  Tree condition(std::size_t position, std::vector<Cells> const& rows) {
    Tree tree{EQ, {}, &columns[below(6)], {}};
    do {
      tree.op = static_cast<Op>(1 + below(SEARCH));
    } while (!fits(tree.op, type_of(tree)) || (tree.op == SEARCH && position < search_position_));
    if (tree.op == SEARCH) search_position_ = position + 1;
    std::size_t const operands = is_list(tree) ? below(5) : is_null_test(tree) ? 0 : 1;
    while (tree.operands.size() < operands) tree.operands.push_back(operand(tree, rows));
    return tree;
  }

  // The databases turn values of other types into different texts. A difference of integers may overflow: SQLite makes
  // it a real number, MariaDB an error. MariaDB also puts the value that a column equals by one condition into another.
  static bool fits(Op op, unsigned int type) {
    return op == DEC ? type == BOOL || type == REAL : op < LK || type == TEXT;
  }

  Value operand(Tree const& tree, std::vector<Cells> const& rows) {
    static Value const small[] = {0.5, -1.5, 3.0, 2U, true, false};  // the same number in every type
    unsigned int const type = type_of(tree);
    if (tree.op == SEARCH || is_pattern(tree)) return pattern(tree, one_in(2) ? one_of(rows)[TEXT] : text());
    if (one_in(16)) return Value();
    if (type == INTEGER && one_in(32)) return largest;
    if (type == REAL ? tree.op == DEC || one_in(4) : type == INTEGER && one_in(4)) return one_of(small);
    Value const value = one_in(2) ? one_of(rows)[type] : this->value(type);
    if (type != UUID || value.is_null() || is_list(tree) || one_in(2)) return value;
    static std::regex const parts("(.{8})(.{4})(.{4})(.{4})");
    return one_in(8) ? "none" : std::regex_replace(value.get_str(), parts, "$1-$2-$3-$4-");
  }

  // Often contains a character that is special to LIKE.
  Value pattern(Tree const& tree, Value const& value) {
    if (value.is_null()) return tree.op == SEARCH ? "" : value;
    std::string text = value.get_str();
    std::size_t const at = below(2 * text.size() + 1);
    if (at < text.size() && static_cast<unsigned char>(text[at]) < 0x80) text[at] = one_of(std::string_view("%_|\\"));
    return is_pattern(tree) && one_in(2) ? '%' + text + '%' : text;
  }

  std::mt19937_64 engine_;
  std::size_t search_position_ = 0;
};

std::string lower(std::string text) {
  for (char& c : text) c = c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
  return text;
}

// No digits for a text that is no uuid, as it is compared as no bytes.
std::string uuid_digits(std::string text) {
  text.erase(std::remove(text.begin(), text.end(), '-'), text.end());
  return text.size() == 32 ? text : "";
}

bool is_like(std::string_view text, std::string_view pattern, Database db) {
  if (pattern.empty()) return text.empty();
  std::string_view const rest = pattern.substr(1);
  std::size_t size = 1;  // of the first character
  while (size < text.size() && (static_cast<unsigned char>(text[size]) & 0xC0U) == 0x80U) ++size;
  std::string_view const text_rest = text.substr(std::min(size, text.size()));
  if (pattern[0] == '%') return is_like(text, rest, db) || (!text.empty() && is_like(text_rest, pattern, db));
  if (text.empty()) return false;
  if (pattern[0] == '_') return is_like(text_rest, rest, db);
  bool const escapes = pattern[0] == '\\' && !rest.empty() && differs::like_escapes_by_backslash(db);
  if (escapes) pattern.remove_prefix(1);
  return text[0] == pattern[0] && is_like(text.substr(1), pattern.substr(1), db);
}

long double number(Value const& value) {  // holds every integer of 64 bits
  if (value.type() == json_spirit::bool_type) return value.get_bool() ? 1 : 0;
  if (value.type() == json_spirit::real_type) return static_cast<long double>(value.get_real());
  return value.is_uint64() ? static_cast<long double>(value.get_uint64()) : static_cast<long double>(value.get_int64());
}

bool has_order(Op op, int order) {
  bool const same = order == 0;
  bool const less = order < 0;
  bool const results[] = {same, !same, less, less || same, !less && !same, !less};
  return results[op == IN || op == NI ? 0 : op - EQ];
}

// Neither is null.
bool is_true(Tree const& tree, Value const& cell, Value const& operand, Database db) {
  if (!is_text(cell)) {
    auto const a = number(cell);
    auto const b = number(operand);
    if (tree.op == DEC) return static_cast<double>(a) == static_cast<double>(a) - static_cast<double>(b);
    return has_order(tree.op, a < b ? -1 : a > b ? 1 : 0);
  }
  std::string a = cell.get_str();
  std::string b = type_of(tree) == UUID ? uuid_digits(operand.get_str()) : operand.get_str();
  bool const any_case = differs::like_ignores_case(db) && (is_pattern(tree) || tree.op == SEARCH);
  if (is_lowered(tree) && differs::lowers_beyond_ascii(db)) std::replace(a.begin(), a.end(), '\x84', '\xA4');  // Ä
  if (is_lowered(tree) || any_case) std::tie(a, b) = std::pair(lower(a), lower(b));
  if (tree.op == SEARCH) return a.find(b) != std::string::npos;
  return is_pattern(tree) ? is_like(a, b, db) == (tree.op == LK) : has_order(tree.op, a.compare(b));
}

enum Truth { NO, UNKNOWN, YES };

Truth truth_of(Tree const& tree, Cells const& row, Database db) {
  if (is_group(tree)) {
    Truth truth = tree.op == ALL ? YES : NO;
    for (Tree const& member : tree.members) {
      Truth const other = truth_of(member, row, db);
      truth = tree.op == ALL ? std::min(truth, other) : std::max(truth, other);
    }
    return truth;
  }
  Value const& cell = row[type_of(tree)];
  if (is_null_test(tree)) return cell.is_null() == (tree.op == NL) ? YES : NO;
  Truth any = NO;
  for (Value const& operand : tree.operands) {
    bool const is_known = !cell.is_null() && !operand.is_null();
    any = std::max(any, !is_known ? UNKNOWN : is_true(tree, cell, operand, db) ? YES : NO);
  }
  return tree.op == NI ? static_cast<Truth>(YES - any) : any;
}

void add_to(Filter_SQL& filter, Tree const& tree) {
  if (is_group(tree)) {
    bool const all = tree.op == ALL;
    Filter_SQL& group = all ? static_cast<Filter_SQL&>(*filter.add_and_filter()) : *filter.add_or_filter();
    for (Tree const& member : tree.members) add_to(group, member);
    return;
  }
  std::string const key = tree.column->value.name;
  auto const& list = tree.operands;
  auto const op = static_cast<Item_SQL::Item_Op>(tree.op);
  bool const is_uuid = type_of(tree) == UUID;
  switch (tree.op) {
    case SEARCH: filter.add_substr_matching(key, list[0].get_str()); return;
    case NL: filter.add_null_item(key); return;
    case NN: filter.add_not_null_item(key); return;
    case IN: is_uuid ? filter.add_in_uuid_item(key, list) : filter.add_in_item(key, list, Filter_SQL::no_flags); return;
    case NI:
      is_uuid ? filter.add_not_in_uuid_item(key, list) : filter.add_not_in_item(key, list, Filter_SQL::no_flags);
      return;
    default: break;
  }
  bool const reads_uuid = is_uuid && is_text(list[0]);
  if (reads_uuid) filter.add_key_uuid_item(op, key, list[0].get_str());
  if (!reads_uuid)
    filter.add_kv_item(op, key, list[0], is_lowered(tree) ? Filter_SQL::lower_case : Filter_SQL::no_flags);
}

enum Form { FILTER, DOCUMENT, QUERY_STRING, OBJECT };

bool is_sayable(Tree const& tree, Form form) {
  if (is_group(tree) || is_null_test(tree) || form == FILTER) return true;
  if (tree.op == SEARCH || tree.op == DEC) return false;
  if (form == DOCUMENT) return !is_lowered(tree);
  return std::all_of(tree.operands.begin(), tree.operands.end(), [&](Value const& v) {
    unsigned int const type = type_of(tree);
    if (type == UUID) return is_text(v) && !uuid_digits(v.get_str()).empty();
    if (form == OBJECT && (is_list(tree) || type == TEXT || type == REAL)) return true;
    if (type == BOOL) return v.type() == json_spirit::bool_type;
    if (type == INTEGER) return v.type() == json_spirit::int_type && (form == OBJECT || !v.is_uint64());
    if (type == REAL || !is_text(v)) return false;
    return !is_list(tree) || (!v.get_str().empty() && v.get_str().find(',') == std::string::npos);
  });
}

std::string request_key(Tree const& tree) {
  if (is_group(tree)) return names[tree.op];
  return (tree.op == EQ ? "" : names[tree.op] + std::string("_")) + tree.column->key;
}

// Without the conditions that the form cannot express. Keys of an object are unique.
Tree sayable(Tree const& tree, Form form) {
  Tree said{tree.op, {}, tree.column, tree.operands};
  std::map<std::string, int> uses;
  for (Tree const& member : tree.members) {
    bool const has_place = form != OBJECT || uses[request_key(member)]++ == 0;
    if (has_place && is_sayable(member, form)) said.members.push_back(sayable(member, form));
  }
  return said;
}

Value document_of(Tree const& tree) {
  if (is_null_test(tree)) return tree.column->value.name + std::string(tree.op == NL ? " IS NULL" : " IS NOT NULL");
  Array list = tree.operands;
  for (Tree const& member : tree.members) list.push_back(document_of(member));
  if (is_group(tree)) return Object{{"op", names[tree.op]}, {"v", list}};
  if (is_list(tree)) return Object{{"op", tree.op == IN ? "EQ" : "NE"}, {"k", tree.column->value.name}, {"v", list}};
  return Object{{"op", names[tree.op]}, {"k", tree.column->value.name}, {"v", list[0]}};
}

std::string encoded(std::string const& text) {
  std::string out;
  for (char const c : text) {
    auto const byte = static_cast<unsigned char>(c);
    char const* const digits = "0123456789ABCDEF";
    out += std::isalnum(byte) != 0 ? std::string(1, c) : std::string{'%', digits[byte / 16], digits[byte % 16]};
  }
  return out;
}

std::string query_text(Tree const& tree) {
  std::string text;
  for (Tree const& m : tree.members) text += encoded(request_key(m)) + '=' + encoded(query_text(m)) + '&';
  for (Value const& v : tree.operands) {
    if (&v != &tree.operands.front()) text += ',';
    text += is_text(v) ? v.get_str() : std::to_string(static_cast<long long>(number(v)));
  }
  return text;
}

Value object_of(Tree const& tree) {
  if (is_list(tree)) return tree.operands;
  if (!is_group(tree)) return tree.operands.empty() ? Value() : tree.operands[0];
  Object object;
  for (Tree const& member : tree.members) object[request_key(member)] = object_of(member);
  return object;
}

// The error of a store that gives no rows. With positions, text in a literal that looks like a name becomes a mark,
// which takes no value.
std::string refusal_of(SQL const& statement, Database db, Store::Binding_Mode mode) {
  static std::regex const name(":[A-Za-z0-9_]+");
  std::string text;
  Bindings bindings;
  statement.get_sql(SQL::DB_NONE, text, bindings);
  std::size_t values = 0;
  for (std::sregex_iterator it(text.begin(), text.end(), name), end; it != end; ++it)
    values += bindings.count(it->str());
  if (mode == Store::BY_POSITION && values != bindings.size())
    return std::to_string(values) + " values for " + std::to_string(bindings.size()) + " parameters";
  bool is_large = false;
  for (auto const& [key, value] : bindings) is_large = is_large || value.val() == largest;
  return is_large && !differs::has_unsigned_64(db) ? "unsigned integer above 9223372036854775807" : "";
}

unsigned long long number_from(char const* variable, char const* otherwise) {
  char const* const text = std::getenv(variable);
  return std::stoull(text == nullptr ? otherwise : text);
}

void as_it_is(Select_SQL& /*select*/) {}
void all(Select_SQL& s) { s.distinct(false); }
void known(Select_SQL& s) { s.and_filter()->add_not_null_item("f.n"); }
void with_id(Select_SQL& s) { s.and_filter()->add_not_null_item("f.id"); }

struct Shape {
  char const* name;
  void (*fill)(Select_SQL& select);
  void (*counted)(Select_SQL& select);  // makes the SELECT whose rows the count query counts
} const shapes[] = {
    {"sorted", [](auto& s) { s.order_by("f.id"); }, as_it_is},
    {"left join", [](auto& s) { s.left_join("item", "g", "g.n=f.n"); }, as_it_is},
    {"right join, every row", [](auto& s) { s.right_join("item", "g", "g.n=f.n").count("*"); }, as_it_is},
    {"right join, rows with id", [](auto& s) { s.right_join("item", "g", "g.n=f.n"); }, with_id},
    {"distinct ids", [](auto& s) { s.distinct(true).select("f.id").left_join("item", "g", "g.n=f.n"); }, as_it_is},
    {"distinct values, all rows", [](auto& s) { s.distinct(true).select("f.n"); }, all},
    {"distinct values but null", [](auto& s) { s.distinct(true).select("f.n").count("DISTINCT f.n"); }, known},
    {"key, without nulls", [](auto& s) { s.count("f.n"); }, known},
    {"groups", [](auto& s) { s.select("f.n").group_by("f.n", true).having("COUNT(*)>1", true); }, as_it_is},
    {"aggregate, rows behind it", [](auto& s) { s.select("MAX(f.n)"); }, [](auto& s) { s.select("1"); }},
};

class Filter_Rows : public testing::TestWithParam<std::tuple<Database, Store::Binding_Mode>> {
protected:
  void fill_table(unsigned long long seed) {
    store_.run("DROP TABLE IF EXISTS item");
    store_.run("CREATE TABLE " +
               with_types("item(id {id}, b {integer}, n {integer}, t {text}, host_uuid {bytes}, r {real})", db_));
    Insert_SQL insert("item");
    Random random(seed);
    for (rows_.clear(); rows_.size() < 40;) {
      if (!rows_.empty()) insert.new_entry();
      Cells const& cells = rows_.emplace_back(random.cells());
      insert.value("id", rows_.size()).value("b", cells[BOOL]).value("n", cells[INTEGER]).value("t", cells[TEXT]);
      insert.value("r", cells[REAL]);
      if (!cells[UUID].is_null()) insert.value_uuid("host_uuid", cells[UUID].get_str());
    }
    ASSERT_EQ(store_.run(insert, mode_), rows_.size());
  }

  void check_rows(Tree const& tree, Form form) {
    Tree const said = sayable(tree, form);
    Value const document = form == DOCUMENT ? document_of(said) : Value();
    Select_SQL select("item", "f");
    SQL_Filter_Parser parser(select.select("f.id").order_by("f.id"), columns);
    switch (form) {
      case FILTER: add_to(*select.filter(), said); break;
      case DOCUMENT: EXPECT_TRUE(generate_filter_from_obj(document.get_obj(), *select.filter())); break;
      case QUERY_STRING:
        parser.parse(std::map{std::pair(request_key(said), query_text(said))}, SQL_Filter_Parser::afresh);
        break;
      case OBJECT: parser.parse(Object{{request_key(said), object_of(said)}}, SQL_Filter_Parser::afresh); break;
    }
    SCOPED_TRACE(render(select));
    EXPECT_THAT(log_.take(), testing::IsEmpty());
    std::vector<long long> passing;
    for (Cells const& row : rows_) {
      if (truth_of(said, row, db_) == YES) passing.push_back(&row - rows_.data() + 1);
    }
    std::string const refusal = refusal_of(select, db_, mode_);
    try {
      std::vector<long long> ids;
      for (Store::Row const& row : store_.rows(select, mode_)) ids.push_back(row.at(0).val().get_int64());
      EXPECT_EQ(ids, passing);
      EXPECT_EQ(refusal, "");
    } catch (Store_Error const& error) {
      EXPECT_THAT(error.what(), testing::HasSubstr(refusal.empty() ? "no error" : refusal));
    }
  }

  void check_count(Tree const& tree, Shape const& shape) {
    Select_SQL paged("item", "f");
    Select_SQL counted("item", "f");
    for (Select_SQL* const select : {&paged, &counted}) {
      add_to(*select->and_filter(), tree);
      shape.fill(*select);
    }
    shape.counted(counted);
    if (!refusal_of(counted, db_, mode_).empty()) return;
    SCOPED_TRACE(shape.name);
    EXPECT_EQ(store_.count(paged.limit(7).offset(2), mode_), store_.rows(counted, mode_).size()) << render(paged);
    log_.take();  // the warning about DISTINCT without a count key
  }

  Database const db_ = std::get<0>(GetParam());
  Store::Binding_Mode const mode_ = std::get<1>(GetParam());
  Log_Capture log_;
  std::unique_ptr<Store> const owner_ = open_empty(db_);
  Store& store_ = *owner_;
  std::vector<Cells> rows_;
};

}  // namespace

INSTANTIATE_TEST_SUITE_P(Stores, Filter_Rows,
                         testing::Combine(testing::Values(Database::sqlite, Database::mariadb),
                                          testing::Values(Store::BY_NAME, Store::BY_POSITION)));

TEST_P(Filter_Rows, are_those_that_pass_whatever_the_filter_is_made_from_and_are_counted) {
  auto const& test = *testing::UnitTest::GetInstance()->current_test_info();
  unsigned long long const first = number_from("BACKUP_TEST_SEED", "1");
  unsigned long long const trees = number_from("BACKUP_TEST_TREES", "2000");
  std::cout << "BACKUP_TEST_SEED=" << first << " BACKUP_TEST_TREES=" << trees << '\n';
  for (unsigned long long seed = first; seed < first + trees && !HasFailure(); ++seed) {
    std::ostringstream replay;  // tree n of a seed is tree 0 of seed + n
    replay << "tree " << seed - first
           << ", again alone: scripts/with-mariadb build/mariadb env BACKUP_TEST_SEED=" << seed
           << " BACKUP_TEST_TREES=1 " << program_invocation_name << " --gtest_filter=" << test.test_suite_name() << '.'
           << test.name();
    SCOPED_TRACE(replay.str());
    if (seed == first || seed % 250 == 0) fill_table(seed / 250);
    Tree const tree = Random(seed).tree(rows_);
    check_rows(tree, FILTER);
    check_rows(tree, static_cast<Form>(1 + seed % 3));
    check_count(tree, shapes[seed % std::size(shapes)]);
  }
}
