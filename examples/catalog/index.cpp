#include "index.h"

#include <algorithm>
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
#include "exact_sum.h"
#include "open_store.h"
#include "progress.h"
#include "text.h"
#include "tree_walk.h"

namespace {

// The first batch is small, so that others see it soon. Later ones grow with their run: each one writes most pages of
// the index by name again.
constexpr std::size_t least_files_per_batch = 20000;
constexpr std::size_t most_files_per_batch = 50000;
constexpr std::size_t bytes_per_batch = 16UL * 1024UL * 1024UL;  // of paths; one may have megabytes
constexpr unsigned long long left_out_named = 10;

using Clock = std::chrono::steady_clock;

volatile std::sig_atomic_t interrupt_requested = 0;

// The first signal ends the run at the next file, the second one ends the process at once. SIGHUP stays ignored where
// the parent process ignores it, as nohup does.
void catch_signals() {
  static constexpr int signals[] = {SIGHUP, SIGINT, SIGTERM};
  struct sigaction action {};
  action.sa_handler = [](int) {
    interrupt_requested = 1;
    for (int const number : signals) std::signal(number, SIG_DFL);
  };
  action.sa_flags = SA_RESTART;
  struct sigaction before {};
  for (int const number : signals) {
    sigaction(number, &action, &before);
    if (number == SIGHUP && before.sa_handler == SIG_IGN) std::signal(number, SIG_IGN);
  }
}

std::string existing_directory(std::string const& directory) {
  std::error_code error;
  std::filesystem::path const path = std::filesystem::canonical(directory, error);
  if (error) throw std::runtime_error(directory + ": " + error.message());
  if (!std::filesystem::is_directory(path, error)) throw std::runtime_error(directory + ": not a directory");
  return path.string();
}

// Collects the files of a new run and stores them in batches.
class Recorder {
public:
  // Calls `refused` for each file that the store does not take; `totals` counts it among the files left out.
  Recorder(backup::Store& store, Index_Options const& options, std::string const& directory, Tree_Walk::Report refused,
           Index_Totals const& totals)
      : catalog_(store),
        address_(options.store),
        refused_(std::move(refused)),
        totals_(totals),
        run_(catalog_.start_run(options.host, directory, std::time(nullptr))) {}

  void add(File const& file) {
    batch_.push_back(file);
    batch_bytes_ += file.path.size();
    std::size_t const full = std::clamp<std::size_t>(stored_, least_files_per_batch, most_files_per_batch);
    if (batch_.size() >= full || batch_bytes_ >= bytes_per_batch) store_batch();
  }

  void end(bool complete) {
    store_batch();
    catalog_.end_run(run_, complete, totals_.left_out, std::time(nullptr));
  }

  // Ends the run after an error, if the store can be opened again. The caller throws the error in either case.
  void give_up() noexcept {
    try {
      auto const store = open_store(address_, Access::change);
      Catalog(*store).end_run(run_, false, totals_.left_out, std::time(nullptr));
    } catch (std::exception const&) {
      return;
    }
  }

  std::string id() const { return uuid_text(run_.val().get_str()); }
  unsigned long long stored() const { return stored_; }
  Exact_Sum const& bytes() const { return bytes_; }
  Clock::duration storing_time() const { return storing_time_; }

private:
  void store_batch() {
    Clock::time_point const start = Clock::now();
    // To add names in their order costs an index a fraction of adding them at random places.
    std::sort(batch_.begin(), batch_.end(), [](File const& a, File const& b) { return a.name < b.name; });
    std::vector<Refused_File> const refused = catalog_.add_files(run_, batch_, totals_.left_out);
    storing_time_ += Clock::now() - start;
    auto next = refused.begin();
    for (std::size_t i = 0; i < batch_.size(); ++i) {
      if (next != refused.end() && next->index == i) {
        refused_(batch_[i].path, "not stored: " + next++->reason);
      } else {
        bytes_.add(static_cast<unsigned long long>(batch_[i].size));
        ++stored_;
      }
    }
    batch_.clear();
    batch_bytes_ = 0;
  }

  Catalog catalog_;
  std::string const address_;
  Tree_Walk::Report const refused_;
  Index_Totals const& totals_;
  Binding_Value const run_;
  std::vector<File> batch_;
  std::size_t batch_bytes_ = 0;
  unsigned long long stored_ = 0;
  Exact_Sum bytes_;
  Clock::duration storing_time_{};
};

std::string per_second(unsigned long long count, Clock::duration time) {
  double const seconds = std::chrono::duration<double>(time).count();
  return grouped(seconds > 0 ? static_cast<unsigned long long>(static_cast<double>(count) / seconds) : 0);
}

void warn_of_left_out(unsigned long long count) {
  if (count == 0) return;
  std::cerr << "catalog: warning: " << grouped(count) << " left out";
  if (count > left_out_named) std::cerr << "; " << grouped(count - left_out_named) << " of them not named";
  std::cerr << '\n';
}

void print_summary(Recorder const& recorder, Clock::duration time) {
  auto const milliseconds = std::chrono::duration_cast<std::chrono::milliseconds>(time).count();
  std::cout << "run " << recorder.id() << ": " << grouped(recorder.stored()) << " files, "
            << grouped(recorder.bytes().digits()) << " bytes\n"
            << grouped(static_cast<unsigned long long>(milliseconds)) << " ms: " << per_second(recorder.stored(), time)
            << " files/s in all, " << per_second(recorder.stored(), recorder.storing_time())
            << " rows/s into the store\n";
  if (!std::cout.flush()) {
    throw std::runtime_error("run " + recorder.id() + " is complete; the output cannot be written");
  }
}

// Records the walk's files until its end or a signal; true at its end.
bool record_all(Tree_Walk& walk, Recorder& recorder, Index_Totals& totals, Progress& progress) {
  File file;
  while (walk.next(file)) {
    recorder.add(file);
    ++totals.files;
    progress.update(totals);
    if (interrupt_requested != 0) return false;
  }
  return true;
}

// True when the walk came to its end.
bool record(Tree_Walk& walk, Recorder& recorder, Index_Totals& totals, Progress& progress) {
  try {
    bool const complete = record_all(walk, recorder, totals, progress);
    recorder.end(complete);
    return complete;
  } catch (std::exception const&) {
    recorder.give_up();
    throw;
  }
}

}  // namespace

Index_Result index_directory(Index_Options const& options) {
  catch_signals();
  std::string const directory = existing_directory(options.directory);
  Index_Totals totals;
  Progress progress;
  auto const leave_out = [&](std::string const& path, std::string const& reason) {
    if (++totals.left_out <= left_out_named) progress.note("catalog: " + printable(path) + ": " + reason);
  };
  Tree_Walk walk(directory, leave_out);
  auto const store = open_store(options.store, Access::create);
  Clock::time_point const start = Clock::now();
  Recorder recorder(*store, options, directory, leave_out, totals);
  bool const complete = record(walk, recorder, totals, progress);
  progress.wipe();
  if (complete) {
    print_summary(recorder, Clock::now() - start);
  } else {
    std::cerr << "catalog: interrupted: " << grouped(recorder.stored()) << " files kept in run " << recorder.id()
              << '\n';
  }
  warn_of_left_out(totals.left_out);
  if (!complete) return Index_Result::interrupted;
  return totals.left_out == 0 ? Index_Result::whole : Index_Result::left_out;
}
