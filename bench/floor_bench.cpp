// What the library costs beside code written by hand, in instructions and in time.
//
//   floor_bench                 the whole table; instructions only where valgrind is installed
//   floor_bench INDEX library   one operation after two warm ones, for valgrind
//   floor_bench INDEX by_hand
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>
#include <optional>
#include <string>
#include <vector>

#include "bench/workloads.h"

namespace {

unsigned long long allocations = 0;

}  // namespace

[[gnu::noinline]] void* operator new(std::size_t size) {
  ++allocations;
  if (void* const memory = std::malloc(size)) return memory;
  throw std::bad_alloc();
}
[[gnu::noinline]] void operator delete(void* memory) noexcept { std::free(memory); }
void operator delete(void* memory, std::size_t /*size*/) noexcept { operator delete(memory); }

// valgrind counts while this runs.
extern "C" [[gnu::noinline]] void measured_operation(void (*operation)(workloads::Result&)) {
  workloads::Result result;
  operation(result);
}

namespace {

using workloads::Workload;
using Operation = void (*)(workloads::Result&);

bool same_value(Binding_Value const& a, Binding_Value const& b) { return a.type() == b.type() && a.val() == b.val(); }

bool same_result(Workload const& workload) {
  workloads::Result library;
  workloads::Result hand;
  workload.library(library);
  workload.by_hand(hand);
  auto const same_binding = [](Bindings::value_type const& a, Bindings::value_type const& b) {
    return a.first == b.first && same_value(a.second, b.second);
  };
  return library.sql == hand.sql &&
         std::equal(library.bindings.begin(), library.bindings.end(), hand.bindings.begin(), hand.bindings.end(),
                    same_binding) &&
         std::equal(library.values.begin(), library.values.end(), hand.values.begin(), hand.values.end(), same_value);
}

void run_one(Workload const& workload, Operation operation) {
  workload.prepare();
  for (int warm = 0; warm < 2; ++warm) {
    workloads::Result result;
    operation(result);
  }
  measured_operation(operation);
}

// Of one operation, by valgrind; none where it is not installed.
std::optional<double> instructions(std::string const& program, std::size_t index, char const* side) {
  std::string const count =
      "valgrind --tool=callgrind --callgrind-out-file=/dev/null --toggle-collect=measured_operation " + program + ' ' +
      std::to_string(index) + ' ' + side + " 2>&1";
  FILE* const out = popen(count.c_str(), "r");
  if (out == nullptr) return std::nullopt;
  char line[512];
  std::optional<double> collected;
  while (std::fgets(line, sizeof line, out) != nullptr) {
    char const* const found = std::strstr(line, "Collected : ");
    if (found != nullptr) collected = std::strtod(found + 12, nullptr);
  }
  pclose(out);
  return collected;
}

double seconds_of(Operation operation, unsigned int times) {
  std::clock_t const start = std::clock();
  for (unsigned int i = 0; i < times; ++i) measured_operation(operation);
  return static_cast<double>(std::clock() - start) / CLOCKS_PER_SEC;
}

// How much more CPU time the library takes, and its own in microseconds: medians of samples that take turns.
struct Times {
  double ratio;
  double microseconds;
};

Times times_of(Workload const& workload) {
  constexpr std::size_t samples = 21;
  unsigned int times = 1;
  while (seconds_of(workload.by_hand, times) < 0.002) times *= 2;
  std::vector<double> library;
  std::vector<double> hand;
  for (std::size_t i = 0; i < samples; ++i) {
    library.push_back(seconds_of(workload.library, times) / times);
    hand.push_back(seconds_of(workload.by_hand, times) / times);
  }
  std::sort(library.begin(), library.end());
  std::sort(hand.begin(), hand.end());
  return {library[samples / 2] / hand[samples / 2], 1e6 * library[samples / 2]};
}

void print_row(std::string const& program, std::size_t index, Workload const& workload) {
  std::optional<double> const library = instructions(program, index, "library");
  std::optional<double> const hand = instructions(program, index, "by_hand");
  auto const allocations_of = [](Operation operation) {
    unsigned long long const before = allocations;
    measured_operation(operation);
    return allocations - before;
  };
  Times const times = times_of(workload);
  std::printf("%-44s", workload.name);
  if (library && hand) {
    std::printf(" %12.0f %7.2f", *library, *library / *hand);
  } else {
    std::printf(" %12s %7s", "-", "-");
  }
  std::printf(" %5.2f %10.1f %7.2f %8llu %8llu\n", workload.bar, times.microseconds, times.ratio,
              allocations_of(workload.library), allocations_of(workload.by_hand));
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<Workload> const& workloads = workloads::all();
  if (argc == 3) {
    Workload const& workload = workloads.at(std::strtoul(argv[1], nullptr, 10));
    run_one(workload, std::strcmp(argv[2], "library") == 0 ? workload.library : workload.by_hand);
    return 0;
  }
  std::printf("%-44s %12s %7s %5s %10s %7s %8s %8s\n", "", "instructions", "ratio", "bar", "CPU us", "ratio", "allocs",
              "by hand");
  for (std::size_t i = 0; i < workloads.size(); ++i) {
    workloads[i].prepare();
    if (!same_result(workloads[i])) {
      std::fprintf(stderr, "%s: library and hand-written code differ\n", workloads[i].name);
      return 1;
    }
    print_row(argv[0], i, workloads[i]);
  }
  return 0;
}
