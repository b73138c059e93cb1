#include "index.h"

#include <chrono>
#include <csignal>
#include <cstddef>
#include <ctime>
#include <filesystem>
#include <iostream>
#include <stdexcept>
#include <string>
#include <system_error>
#include <vector>

#include "backup/store/store.h"
#include "catalog.h"
#include "open_store.h"
#include "progress.h"
#include "text.h"
#include "tree_walk.h"

namespace {

constexpr std::size_t files_per_batch = 20000;
constexpr unsigned long long unreadable_named = 10;

using Clock = std::chrono::steady_clock;

volatile std::sig_atomic_t interrupt_requested = 0;

// SIGINT and SIGTERM ask for an end at the next file; a second one ends the process at once.
void catch_signals() {
  struct sigaction action {};
  action.sa_handler = [](int) { interrupt_requested = 1; };
  action.sa_flags = static_cast<int>(SA_RESTART | SA_RESETHAND);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

std::string existing_directory(std::string const& directory) {
  std::error_code error;
  std::filesystem::path const path = std::filesystem::canonical(directory, error);
  if (error) throw std::runtime_error(directory + ": " + error.message());
  if (!std::filesystem::is_directory(path, error)) throw std::runtime_error(directory + ": not a directory");
  return path.string();
}

// A run in the making: collects files and stores them by the batch.
class Recorder {
public:
  Recorder(Store& store, std::string const& host, std::string const& directory)
      : catalog_(store), run_(catalog_.start_run(host, directory, std::time(nullptr))) {
    batch_.reserve(files_per_batch);
  }

  void add(File const& file) {
    batch_.push_back(file);
    if (batch_.size() == files_per_batch) store_batch();
  }

  void complete() {
    store_batch();
    catalog_.end_run(run_, true, std::time(nullptr));
  }

  void interrupt() { catalog_.end_run(run_, false, std::time(nullptr)); }

  std::string id() const { return uuid_text(run_.val().get_str()); }
  unsigned long long stored() const { return stored_; }
  Clock::duration storing_time() const { return storing_time_; }

private:
  void store_batch() {
    Clock::time_point const start = Clock::now();
    catalog_.add_files(run_, batch_);
    storing_time_ += Clock::now() - start;
    stored_ += batch_.size();
    batch_.clear();
  }

  Catalog catalog_;
  Binding_Value const run_;
  std::vector<File> batch_;
  unsigned long long stored_ = 0;
  Clock::duration storing_time_{};
};

std::string per_second(unsigned long long count, Clock::duration time) {
  double const seconds = std::chrono::duration<double>(time).count();
  return grouped(seconds > 0 ? static_cast<unsigned long long>(static_cast<double>(count) / seconds) : 0);
}

void warn_of_unreadable(unsigned long long count) {
  if (count == 0) return;
  std::cerr << "catalog: warning: " << grouped(count) << " unreadable, left out";
  if (count > unreadable_named) std::cerr << "; " << grouped(count - unreadable_named) << " of them not named";
  std::cerr << '\n';
}

void print_summary(Recorder const& recorder, Index_Totals const& totals, Clock::duration time) {
  auto const milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
  std::cout << "run " << recorder.id() << ": " << grouped(totals.files) << " files, " << grouped(totals.bytes)
            << " bytes\n"
            << grouped(static_cast<unsigned long long>(milliseconds)) << " ms: " << per_second(totals.files, time)
            << " files/s in all, " << per_second(recorder.stored(), recorder.storing_time())
            << " rows/s into the store\n";
}

// Feeds the walk to the recorder, to its end or to a signal; true when it came to its end.
bool record_all(Tree_Walk& walk, Recorder& recorder, Index_Totals& totals, Progress& progress) {
  File file;
  while (walk.next(file)) {
    if (interrupt_requested != 0) return false;
    recorder.add(file);
    ++totals.files;
    totals.bytes += static_cast<unsigned long long>(file.size);
    progress.update(totals);
  }
  return true;
}

}  // namespace

bool index_directory(Index_Options const& options) {
  std::string const directory = existing_directory(options.directory);
  Index_Totals totals;
  Progress progress;
  Tree_Walk walk(directory, [&](std::string const& path, std::string const& reason) {
    if (++totals.unreadable <= unreadable_named) progress.note("catalog: " + printable(path) + ": " + reason);
  });
  auto const store = open_store(options.store, Access::create);
  catch_signals();
  Clock::time_point const start = Clock::now();
  Recorder recorder(*store, options.host, directory);
  bool const complete = record_all(walk, recorder, totals, progress);
  complete ? recorder.complete() : recorder.interrupt();
  progress.wipe();
  if (complete) {
    print_summary(recorder, totals, Clock::now() - start);
  } else {
    std::cerr << "catalog: interrupted: " << grouped(recorder.stored()) << " files kept in run " << recorder.id()
              << '\n';
  }
  warn_of_unreadable(totals.unreadable);
  return complete;
}
