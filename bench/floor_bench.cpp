// The cost of the library beside code written by hand, in instructions and time.
//
//   floor_bench [TEXT]...             rows whose name has one of the texts; instructions where valgrind is installed
//   floor_bench --one INDEX library   one operation after two warm ones, for valgrind
//   floor_bench --one INDEX by_hand
#include <malloc.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "bench/figures.h"
#include "bench/workloads.h"

namespace {

// The program's use of the heap while `counts` is true.
struct Heap {
  bool counts = false;
  unsigned long long allocations = 0;
  long long bytes = 0;  // held now; falls below 0 when older memory is released
  long long peak = 0;
} heap;

long long bytes_of(void* memory) { return static_cast<long long>(malloc_usable_size(memory)); }

void* taken(void* memory) {
  if (!heap.counts) return memory;
  ++heap.allocations;
  heap.bytes += bytes_of(memory);
  heap.peak = std::max(heap.peak, heap.bytes);
  return memory;
}

void given_back(void* memory) {
  if (heap.counts) heap.bytes -= bytes_of(memory);
}

}  // namespace

// glibc's own functions. All code here calls the ones below, which count.
extern "C" {
// NOLINTBEGIN(bugprone-reserved-identifier)
void* __libc_malloc(std::size_t size);
void* __libc_calloc(std::size_t count, std::size_t size);
void* __libc_realloc(void* memory, std::size_t size);
void __libc_free(void* memory);
// NOLINTEND(bugprone-reserved-identifier)

void* malloc(std::size_t size) noexcept { return taken(__libc_malloc(size)); }
void* calloc(std::size_t count, std::size_t size) noexcept { return taken(__libc_calloc(count, size)); }
void* realloc(void* memory, std::size_t size) noexcept {
  given_back(memory);
  return taken(__libc_realloc(memory, size));
}
void free(void* memory) noexcept {
  given_back(memory);
  __libc_free(memory);
}
}

// valgrind counts only while this runs.
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
  if (workload.prepare != nullptr) workload.prepare();
  for (int warm = 0; warm < 2; ++warm) {
    workloads::Result result;
    operation(result);
  }
  measured_operation(operation);
}

// Instructions of one operation, by valgrind; none when it is not installed.
std::optional<double> instructions(std::string const& program, std::size_t index, char const* side) {
  std::string const count =
      "valgrind --tool=callgrind --callgrind-out-file=/dev/null --toggle-collect=measured_operation " + program +
      " --one " + std::to_string(index) + ' ' + side + " 2>&1";
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

// Microseconds of one operation, and their ratio: medians of alternating samples.
struct Times {
  double library;
  double by_hand;
};

double median(std::vector<double>& samples) {
  auto const middle = samples.begin() + static_cast<std::ptrdiff_t>(samples.size() / 2);
  std::nth_element(samples.begin(), middle, samples.end());
  return *middle;
}

Times times_of(Workload const& workload) {
  unsigned int times = 1;
  while (seconds_of(workload.by_hand, times) < 0.002) times *= 2;
  std::vector<double> library;
  std::vector<double> hand;
  for (int i = 0; i < 21; ++i) {
    library.push_back(1e6 * seconds_of(workload.library, times) / times);
    hand.push_back(1e6 * seconds_of(workload.by_hand, times) / times);
  }
  return {median(library), median(hand)};
}

Heap heap_of(Operation operation) {
  heap = {true};
  measured_operation(operation);
  return std::exchange(heap, {});
}

void print_row(std::string const& program, std::size_t index, Workload const& workload) {
  std::optional<double> const library = instructions(program, index, "library");
  std::optional<double> const hand = instructions(program, index, "by_hand");
  Times const times = times_of(workload);
  Heap const heap_library = heap_of(workload.library);
  Heap const heap_hand = heap_of(workload.by_hand);
  std::printf("%s\t%s", workload.name, workload.floor);
  if (library && hand) {
    std::printf("\t%.0f\t%.0f\t%.2f", *library, *hand, *library / *hand);
  } else {
    std::printf("\t-\t-\t-");
  }
  std::printf("\t%.2f\t%.1f\t%.1f\t%.2f\t%llu\t%llu\t%lld\t%lld\n", workload.bar, times.library, times.by_hand,
              times.library / times.by_hand, heap_library.allocations, heap_hand.allocations, heap_library.peak,
              heap_hand.peak);
  std::fflush(stdout);
}

}  // namespace

int main(int argc, char** argv) {
  std::vector<Workload> workloads = workloads::statements();
  for (auto const& more : {workloads::requests(), workloads::documents()})
    workloads.insert(workloads.end(), more.begin(), more.end());
  if (argc == 4 && std::strcmp(argv[1], "--one") == 0) {
    Workload const& workload = workloads.at(std::strtoul(argv[2], nullptr, 10));
    run_one(workload, std::strcmp(argv[3], "library") == 0 ? workload.library : workload.by_hand);
    return 0;
  }
  std::printf(
      "#operations\toperation\tfloor\tinstructions\tinstructions by hand\tratio\tbar\tCPU us\tCPU us by hand\t"
      "ratio of times\tallocations\tallocations by hand\tbytes\tbytes by hand\n");
  for (std::size_t i = 0; i < workloads.size(); ++i) {
    Workload const& workload = workloads[i];
    if (!figures::is_wanted(workload.name, argc, argv)) continue;
    if (workload.prepare != nullptr) workload.prepare();
    if (!same_result(workload)) {
      std::fprintf(stderr, "%s: library and hand-written code differ\n", workload.name);
      return 1;
    }
    print_row(argv[0], i, workload);
  }
  return 0;
}
