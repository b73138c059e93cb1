// The worst cost of a hostile request: memory for each byte, and CPU time for one megabyte.
#include <ace/Log_Msg.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <string>

#include "bench/depth_steps.h"
#include "bench/figures.h"

namespace {

using depth_steps::nested;

std::string repeated(std::string const& piece, std::size_t bytes) {
  std::string text;
  text.reserve(bytes + piece.size());
  while (text.size() < bytes) text += piece;
  return text;
}

// A staircase: each level decodes one escape and reads the rest of the text again.
std::string staircase(std::size_t bytes) {
  return repeated("AND=", bytes * 2 / 3) + "k=1%" + repeated("25", bytes / 3);
}

SQL_Filter_Parser::Filters const keys[] = {{"k", 1, {nullptr, SQL_Filter_Parser::Filter::TYPE_INT, 0, 0}},
                                           {"t", 1, {nullptr, SQL_Filter_Parser::Filter::TYPE_TEXT, 0, 0}},
                                           {nullptr, 0, {nullptr, 0, 0, 0}}};

void read_json(std::string const& text) {
  json_spirit::Value value;
  json_spirit::Read_Error error;
  json_spirit::read_string(text, value, error);
}

void parse_json(std::string const& text) {
  json_spirit::Value value;
  json_spirit::read_string_or_throw(text, value);
  Select_SQL select("t");
  SQL_Filter_Parser(select, keys).parse(value.get_obj(), 0);
  depth_steps::rendered(select);
}

void parse_pairs(std::string const& text) {
  std::map<std::string, std::string> const pairs{{"AND", text}};
  Select_SQL select("t");
  SQL_Filter_Parser(select, keys).parse(pairs, 0);
  depth_steps::rendered(select);
}

std::string quoted(std::string const& text) { return R"({"AND":")" + text + R"("})"; }

struct Input {
  char const* name;
  std::string (*make)(std::size_t bytes);
  void (*use)(std::string const& text);
};

Input const inputs[] = {
    {"JSON: lists in lists", [](std::size_t n) { return nested(n / 2, "[", "", "]"); }, read_json},
    {"JSON: lists in lists, unclosed", [](std::size_t n) { return repeated("[", n); }, read_json},
    {"JSON: a list of lists", [](std::size_t n) { return '[' + repeated("[],", n) + "[]]"; }, read_json},
    {"JSON: objects in objects", [](std::size_t n) { return nested(n / 6, R"({"":)", "{}", "}"); }, read_json},
    {"JSON: a list of numbers", [](std::size_t n) { return '[' + repeated("1,", n) + "1]"; }, read_json},
    {"JSON request: groups in groups", [](std::size_t n) { return nested(n / 7, R"({"OR":)", R"({"k":1})", "}"); },
     parse_json},
    {"JSON request: a list of lists", [](std::size_t n) { return R"({"IN_k":[)" + repeated("[],", n) + "[]]}"; },
     parse_json},
    {"JSON request: a value of lists in lists",
     [](std::size_t n) { return R"({"t":)" + nested(n / 2, "[", "", "]") + '}'; }, parse_json},
    {"JSON request: a value of lists", [](std::size_t n) { return R"({"t":[)" + repeated("[],", n) + "[]]}"; },
     parse_json},
    {"JSON request: escaped groups", [](std::size_t n) { return quoted(staircase(n)); }, parse_json},
    {"query string: groups in groups", [](std::size_t n) { return repeated("AND=", n) + "k=1"; }, parse_pairs},
    {"query string: groups beside groups", [](std::size_t n) { return repeated("OR&", n) + "k=1"; }, parse_pairs},
    {"query string: conditions", [](std::size_t n) { return repeated("k&", n) + "k=1"; }, parse_pairs},
    {"query string: a list", [](std::size_t n) { return "IN_k=" + repeated("1,", n); }, parse_pairs},
    {"query string: escaped groups", staircase, parse_pairs},
};

struct Cost {
  double bytes;
  double milliseconds;
};

// Runs `work` in a process of its own. Gives its largest memory and its time.
template <class Work>
Cost cost_of(Work work) {
  pid_t const child = fork();
  if (child == 0) {
    work();
    _exit(0);
  }
  int status = 0;
  rusage usage{};
  if (child < 0 || wait4(child, &status, 0, &usage) != child || status != 0) {
    std::fprintf(stderr, "a process ended badly\n");
    _exit(1);
  }
  auto const milliseconds = [](timeval const& time) {
    return 1e3 * static_cast<double>(time.tv_sec) + 1e-3 * static_cast<double>(time.tv_usec);
  };
  return {1024.0 * static_cast<double>(usage.ru_maxrss), milliseconds(usage.ru_utime) + milliseconds(usage.ru_stime)};
}

// The worst of several sizes, for each byte and each megabyte of the input. Containers that double waste most just
// above a power of two.
Cost worst_cost(Input const& input) {
  Cost worst{0, 0};
  for (std::size_t const bytes : {2000000U, 2300000U, 2700000U, 3100000U, 3600000U}) {
    std::string text;
    Cost const idle = cost_of([&] { text = input.make(bytes); });
    Cost const busy = cost_of([&] {
      text = input.make(bytes);
      input.use(text);
    });
    auto const size = static_cast<double>(bytes);
    worst.bytes = std::max(worst.bytes, (busy.bytes - idle.bytes) / size);
    worst.milliseconds = std::max(worst.milliseconds, 1e6 * (busy.milliseconds - idle.milliseconds) / size);
  }
  return worst;
}

}  // namespace

int main(int argc, char** argv) {
  ACE_Log_Msg::instance()->priority_mask(0, ACE_Log_Msg::PROCESS);  // failures are not logged
  std::puts("#hostile requests\toperation\tbytes for a byte\tCPU ms for 1 MB");
  for (Input const& input : inputs) {
    if (!figures::is_wanted(input.name, argc, argv)) continue;
    std::fflush(stdout);
    Cost const worst = worst_cost(input);
    std::printf("%s\t%.1f\t%.1f\n", input.name, worst.bytes, worst.milliseconds);
  }
  return 0;
}
