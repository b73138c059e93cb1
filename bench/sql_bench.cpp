// What the builders cost beside hand-written code that writes the same text and fills the same bindings, in the same
// run. Each measure first checks that both give the same; the table at the end has the ratios and the allocations per
// operation.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <new>
#include <string>
#include <vector>

#include "backup/utils/sql/filter_sql.h"
#include "backup/utils/sql/insert_sql.h"
#include "backup/utils/sql/question_mask_sql_converter.h"
#include "backup/utils/sql/select_sql.h"

namespace {

unsigned long long allocations = 0;

}  // namespace

void* operator new(std::size_t size) {
  ++allocations;
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { std::free(memory); }

namespace {

struct Result {
  std::string sql;
  Bindings bindings;
  std::vector<Binding_Value> values;
};
using Operation = std::function<void(Result&)>;

bool same_value(Binding_Value const& a, Binding_Value const& b) { return a.type() == b.type() && a.val() == b.val(); }

// What a careful programmer writes for one parameter.
void hand_param(Result& out, unsigned long long& index, Binding_Value value) {
  std::array<char, 24> buffer = {':'};
  char* const end = std::to_chars(buffer.data() + 1, buffer.data() + buffer.size(), ++index).ptr;
  std::string name(buffer.data(), end);
  out.sql += name;
  out.bindings.emplace(std::move(name), std::move(value));
}

void hand_quote(std::string& sql, std::string const& text) {
  sql += '\'';
  for (char const c : text) {
    if (c == '\'') sql += '\'';
    sql += c;
  }
  sql += '\'';
}

std::string const host = "00112233445566778899aabbccddeeff";
std::vector<json_spirit::Value> const uuids{host, "ffeeddccbbaa99887766554433221100"};

void library_request(Result& out) {
  Select_SQL select("file", "f");
  select.add_key("f.id", nullptr).add_key("f.name", nullptr).add_key("f.size", nullptr).add_key("h.name", "host");
  select.left_join("host", "h", "h.id=f.host_id");
  Filter_SQL* const filter = select.and_filter();
  filter->add_kv_item(Item_SQL::OP_GE, "f.size", 1024, 0);
  filter->add_in_uuid_item("f.host_uuid", uuids);
  filter->add_null_item("f.deleted");
  Filter_SQL* const either = filter->add_or_filter();
  either->add_kv_item(Item_SQL::OP_NE, "f.size", 0, 0);
  either->add_kv_item(Item_SQL::OP_LK, "f.name", "%Report about everything%", 1);
  select.sort_keys("f.name,f.size").sort_orders("desc").limit(50).offset(100);
  select.get_sql(SQL::DB_SQLITE, out.sql, out.bindings);
}

void hand_request(Result& out) {
  unsigned long long index = 0;
  out.sql.reserve(1024);
  out.sql += "SELECT f.id,f.name,f.size,h.name `host` FROM `file` `f` LEFT JOIN `host` `h` ON h.id=f.host_id WHERE ";
  out.sql += "(`f`.`size`>=";
  hand_param(out, index, 1024);
  out.sql += ") AND (`f`.`host_uuid` IN (";
  char const* comma = "x";
  for (json_spirit::Value const& uuid : uuids) {
    out.sql += comma;
    hand_quote(out.sql, uuid.get_str());
    comma = ",x";
  }
  out.sql += ")) AND (`f`.`deleted` IS NULL) AND ((`f`.`size`!=";
  hand_param(out, index, 0);
  out.sql += ") OR (LOWER(`f`.`name`) LIKE ";
  std::string text = "%Report about everything%";
  std::transform(text.begin(), text.end(), text.begin(),
                 [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
  hand_param(out, index, text);
  out.sql += ")) ORDER BY f.name DESC,f.size ASC LIMIT ";
  out.sql += std::to_string(50);
  out.sql += " OFFSET ";
  out.sql += std::to_string(100);
}

std::vector<std::string> const columns = [] {
  std::vector<std::string> names;
  for (int i = 0; i < 100; ++i) names.push_back("column_" + std::to_string(i));
  return names;
}();

void library_and(Result& out) {
  And_Filter_SQL filter;
  for (std::string const& column : columns) filter.add_kv_eq_item(column, 5);
  filter.get_sql(SQL::DB_SQLITE, out.sql, out.bindings);
}

void hand_and(Result& out) {
  unsigned long long index = 0;
  out.sql.reserve(1024);
  char const* separator = "(`";
  for (std::string const& column : columns) {
    out.sql += separator;
    out.sql += column;
    out.sql += "`=";
    hand_param(out, index, 5);
    separator = ") AND (`";
  }
  out.sql += ')';
}

std::vector<json_spirit::Value> const texts = [] {
  std::vector<json_spirit::Value> list;
  for (int i = 0; i < 10000; ++i) list.emplace_back("/home/user/it's file " + std::to_string(i));
  return list;
}();

void library_in(Result& out) {
  And_Filter_SQL filter;
  filter.add_in_item("path", texts, 0);
  filter.get_sql(SQL::DB_SQLITE, out.sql, out.bindings);
}

void hand_in(Result& out) {
  out.sql.reserve(1024);
  char const* separator = "(`path` IN (";
  for (json_spirit::Value const& text : texts) {
    out.sql += separator;
    hand_quote(out.sql, text.get_str());
    separator = ",";
  }
  out.sql += "))";
}

constexpr int rows = 1000;
std::string const fields[] = {"id", "path", "name", "kind", "size", "mtime", "owner", "run_id"};
std::string const path = "/usr/share/doc/package/examples";

// The value of one field of one row: short and long texts, integers, a null.
Binding_Value field_value(int row, int field) {
  switch (field) {
    case 1: return path;
    case 2: return "readme.txt";
    case 6: return "root";
    case 7: return {};
    default: return row * 10 + field;
  }
}

void library_insert(Result& out) {
  Insert_SQL insert("file");
  for (int row = 0; row < rows; ++row) {
    if (row > 0) insert.new_entry();
    for (int field = 0; field < 8; ++field) insert.value(fields[field], field_value(row, field), nullptr);
  }
  insert.get_sql(SQL::DB_SQLITE, out.sql, out.bindings);
}

void hand_insert(Result& out) {
  unsigned long long index = 0;
  out.sql = "INSERT INTO `file`(";
  char const* separator = "`";
  for (std::string const& field : fields) {
    out.sql += separator;
    out.sql += field;
    separator = "`,`";
  }
  separator = "`) VALUES(";
  for (int row = 0; row < rows; ++row) {
    out.sql += separator;
    for (int field = 0; field < 8; ++field) {
      if (field > 0) out.sql += ',';
      hand_param(out, index, field_value(row, field));
    }
    separator = "),(";
  }
  out.sql += ')';
}

Result const named = [] {
  Result result;
  unsigned long long index = 0;
  result.sql = "SELECT 1 WHERE 1";
  for (int i = 0; i < 2000; ++i) {
    result.sql += " AND `column`!=";
    hand_param(result, index, i);
  }
  return result;
}();

void library_positional(Result& out) {
  out.sql = named.sql;
  Question_Mask_SQL_Converter().convert(out.sql, named.bindings, out.values);
}

void hand_positional(Result& out) {
  std::string const& sql = named.sql;
  out.sql.reserve(sql.size());
  std::string name;
  for (std::size_t i = 0; i < sql.size();) {
    std::size_t const colon = std::min(sql.find(':', i), sql.size());
    out.sql.append(sql, i, colon - i);
    if (colon == sql.size()) break;
    for (i = colon + 1; i < sql.size() && sql[i] >= '0' && sql[i] <= '9';) ++i;
    name.assign(sql, colon, i - colon);
    out.sql += '?';
    out.values.push_back(named.bindings.find(name)->second);
  }
}

struct Measure {
  char const* name;
  void (*library)(Result&);
  void (*hand)(Result&);
};
Measure const measures[] = {{"request SELECT", library_request, hand_request},
                            {"AND of 100 conditions", library_and, hand_and},
                            {"IN of 10,000 texts", library_in, hand_in},
                            {"INSERT 1,000 x 8", library_insert, hand_insert},
                            {"2,000 names to marks", library_positional, hand_positional}};

void run(benchmark::State& state, void (*operation)(Result&)) {
  unsigned long long const before = allocations;
  for (auto _ : state) {
    Result result;
    operation(result);
    benchmark::DoNotOptimize(result);
  }
  state.counters["allocations"] = static_cast<double>(allocations - before) / static_cast<double>(state.iterations());
}

// Prints as usual and keeps the best time of each name for the table of ratios.
class Ratio_Reporter : public benchmark::ConsoleReporter {
public:
  void ReportRuns(std::vector<Run> const& runs) override {
    for (Run const& run : runs) {
      if (run.run_type == Run::RT_Aggregate) continue;
      Figures& best = figures_[run.run_name.function_name];
      double const time = run.GetAdjustedCPUTime();
      if (best.time == 0 || time < best.time) best = {time, run.counters.at("allocations")};
    }
    ConsoleReporter::ReportRuns(runs);
  }

  void print_ratios() const {
    std::printf("\n%-22s %12s %12s %7s %10s %10s\n", "best CPU time", "library us", "by hand us", "ratio", "allocs",
                "by hand");
    for (Measure const& measure : measures) {
      auto const library = figures_.find(std::string(measure.name) + "/library");
      auto const hand = figures_.find(std::string(measure.name) + "/by hand");
      if (library == figures_.end() || hand == figures_.end()) continue;
      std::printf("%-22s %12.2f %12.2f %7.2f %10.0f %10.0f\n", measure.name, library->second.time / 1000,
                  hand->second.time / 1000, library->second.time / hand->second.time, library->second.allocations,
                  hand->second.allocations);
    }
  }

private:
  struct Figures {
    double time = 0;  // nanoseconds
    double allocations = 0;
  };
  std::map<std::string, Figures> figures_;
};

bool same_result(Measure const& measure) {
  Result library;
  Result hand;
  measure.library(library);
  measure.hand(hand);
  auto const same_binding = [](Bindings::value_type const& a, Bindings::value_type const& b) {
    return a.first == b.first && same_value(a.second, b.second);
  };
  return library.sql == hand.sql &&
         std::equal(library.bindings.begin(), library.bindings.end(), hand.bindings.begin(), hand.bindings.end(),
                    same_binding) &&
         std::equal(library.values.begin(), library.values.end(), hand.values.begin(), hand.values.end(), same_value);
}

}  // namespace

int main(int argc, char** argv) {
  for (Measure const& measure : measures) {
    if (same_result(measure)) continue;
    std::fprintf(stderr, "%s: library and hand-written code differ\n", measure.name);
    return 1;
  }
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 2;
  for (Measure const& measure : measures) {
    std::string const name = measure.name;
    benchmark::RegisterBenchmark((name + "/library").c_str(), run, measure.library)->Repetitions(5);
    benchmark::RegisterBenchmark((name + "/by hand").c_str(), run, measure.hand)->Repetitions(5);
  }
  Ratio_Reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  reporter.print_ratios();
  return 0;
}
