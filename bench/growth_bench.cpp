// How time grows with size: levels of groups, rows of an INSERT, names of parameters. Each step runs at three sizes,
// each ten times the one before; a linear step grows by 10. Caches are emptied before each step and no memory goes back
// to the system: otherwise small sizes would have warm caches and large ones page faults.
#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <iterator>
#include <limits>
#include <memory>
#include <string>
#include <vector>

#include "backup/utils/sql/insert_sql.h"
#include "backup/utils/sql/question_mask_sql_converter.h"
#include "bench/by_hand.h"
#include "bench/depth_steps.h"
#include "bench/figures.h"

namespace {

constexpr std::size_t sizes[] = {10000, 100000, 1000000};
constexpr std::size_t repetitions[] = {30, 30, 15};

// `run` gives false for a wrong result.
template <class State>
struct Step {
  char const* name;
  bool (*run)(State& state);
};

// ---- rows

struct Rows {
  explicit Rows(std::size_t rows) : count(rows) {}

  std::size_t count;
  Insert_SQL insert{"file"};
  std::string text;
  Bindings bindings;
  std::vector<Binding_Value> values;
};

Step<Rows> const row_steps[] = {
    {"INSERT of 2 columns, by rows: build",
     [](Rows& r) {
       for (std::size_t i = 0; i < r.count; ++i) {
         if (i > 0) r.insert.new_entry();
         r.insert.value("id", i).value("name", "readme.txt");
       }
       return r.insert.entries().size() == r.count;
     }},
    {"INSERT of 2 columns, by rows: render",
     [](Rows& r) {
       r.insert.get_sql(SQL::DB_SQLITE, r.text, r.bindings);
       return r.bindings.size() == 2 * r.count;
     }},
    {"INSERT of 2 columns, by rows: render with marks",
     [](Rows& r) {
       r.insert.get_sql(SQL::DB_SQLITE, r.text, r.values);
       return r.values.size() == 2 * r.count;
     }},
    {"INSERT of 2 columns, by rows: clear",
     [](Rows& r) {
       r.insert.clear();
       return r.insert.empty();
     }},
};

// ---- names

// The names ":1" to ":count", in the order of the numbers or of their texts.
struct Names {
  explicit Names(std::size_t names) : count(names) {
    by_hand::fill(bindings, count, [](unsigned long long n) { return Binding_Value(n); });
    for (std::size_t i = 1; i <= count; ++i) in_text_order += " AND `column`!=:" + std::to_string(i);
    for (auto const& binding : bindings) in_map_order += " AND `column`!=" + binding.first;
  }
  bool convert(std::string& text) const {
    std::vector<Binding_Value> values;
    return Question_Mask_SQL_Converter().convert(text, bindings, values) && values.size() == count;
  }

  std::size_t count;
  Bindings bindings;
  std::string in_text_order;
  std::string in_map_order;
};

Step<Names> const name_steps[] = {
    {"names to marks, text order", [](Names& n) { return n.convert(n.in_text_order); }},
    {"names to marks, map order", [](Names& n) { return n.convert(n.in_map_order); }},
};

// ---- measuring

void empty_caches() {
  static std::vector<unsigned char> memory(256UL << 20U);  // several times a processor's cache
  for (std::size_t i = 0; i < memory.size(); i += 64) ++memory[i];
}

struct Row {
  std::string name;
  bool wanted;
  double best[std::size(sizes)];  // in milliseconds
};

// Keeps the best time of each step. False, and reported, when a step gives a wrong result.
template <class State, class Steps>
bool measure(Steps const& steps, std::size_t size, std::vector<Row>& rows) {
  auto const state = std::make_unique<State>(sizes[size]);
  for (std::size_t i = 0; i < rows.size(); ++i) {
    empty_caches();
    std::clock_t const start = std::clock();
    bool const right = steps[i].run(*state);
    double const time = 1000.0 * static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
    rows[i].best[size] = std::min(rows[i].best[size], time);
    if (right) continue;
    std::fprintf(stderr, "%s, %zu: wrong result\n", steps[i].name, sizes[size]);
    return false;
  }
  return true;
}

// Measures all steps in order, as each may need earlier ones. Prints the wanted ones.
template <class State, class Steps>
bool print_growth(Steps const& steps, std::string const& prefix, int argc, char** argv) {
  std::vector<Row> rows;
  for (auto const& step : steps) {
    std::string const name = prefix + step.name;
    rows.push_back({name, figures::is_wanted(name.c_str(), argc, argv), {1e9, 1e9, 1e9}});
  }
  if (std::none_of(rows.begin(), rows.end(), [](Row const& row) { return row.wanted; })) return true;
  for (std::size_t size = 0; size < std::size(sizes); ++size) {
    for (std::size_t n = 0; n < repetitions[size]; ++n) {
      if (!measure<State>(steps, size, rows)) return false;
    }
  }
  for (auto const& [name, wanted, best] : rows) {
    if (!wanted) continue;
    std::printf("%s\t%.2f\t%.2f\t%.2f\t%.1f\t%.1f\t12\n", name.c_str(), best[0], best[1], best[2], best[1] / best[0],
                best[2] / best[1]);
  }
  std::fflush(stdout);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, std::numeric_limits<int>::max());
  std::puts("#growth\toperation\tms of 10,000\tms of 100,000\tms of 1,000,000\tgrowth\tgrowth again\tbar");
  bool const right = print_growth<depth_steps::Deep>(depth_steps::steps, "levels of groups: ", argc, argv) &&
                     print_growth<Rows>(row_steps, "", argc, argv) && print_growth<Names>(name_steps, "", argc, argv);
  return right ? 0 : 1;
}
