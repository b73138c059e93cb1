#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <exception>
#include <functional>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include "catalog.h"
#include "index.h"
#include "option_values.h"
#include "query.h"
#include "store_file.h"
#include "text.h"

namespace {

enum Exit_Code : int { exit_success = 0, exit_failed = 1, exit_misuse = 2 };

// What the command line asks for: set while it is parsed, called afterwards.
using Command = std::function<Exit_Code()>;

std::string machine_name() {
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "localhost";
}

void add_store(CLI::App& command, std::string& file) {
  command.add_option("--store", file, "The catalogue, an SQLite database")->type_name("FILE")->required();
}

void add_read_options(CLI::App& command, Read_Options& options) {
  add_store(command, options.store);
  auto const set_format = [&options](std::string const& word) {
    require_word("--format", word, {"table", "json", "csv"});
    options.format = word == "json" ? Format::json : word == "csv" ? Format::csv : Format::table;
  };
  command.add_option_function<std::string>("--format", set_format, "table (the default), json or csv; times are UTC")
      ->type_name("FORMAT");
}

void add_index(CLI::App& app, Command& command) {
  auto const options = std::make_shared<Index_Options>();
  options->host = machine_name();
  CLI::App& index = *app.add_subcommand(
      "index",
      "Record everything below a directory as a new run. Symbolic links are recorded, not followed. What cannot be "
      "read is left out with a warning. An interrupted run keeps what was stored.");
  index.add_option("DIR", options->directory, "The directory")->type_name("")->required();
  add_store(index, options->store);
  index.add_option("--host", options->host, "The machine that the files are on")
      ->type_name("NAME")
      ->capture_default_str();
  index.callback(
      [options, &command] { command = [options] { return index_directory(*options) ? exit_success : exit_failed; }; });
}

void add_sort_options(CLI::App& find, File_Query& query) {
  auto const set_sort = [&query](Words const& words) {
    Words allowed;
    for (Column const& column : file_columns()) allowed.emplace_back(column.name);
    for (std::string const& word : words) require_word("--sort", word, allowed);
    query.sort = words;
  };
  auto const set_order = [&query](Words const& words) {
    for (std::string const& word : words) require_word("--order", word, {"asc", "desc"});
    query.order = words;
  };
  find.add_option_function<Words>("--sort", set_sort, "Columns to sort by, separated by commas (default: path)")
      ->type_name("KEYS")
      ->delimiter(',')
      ->allow_extra_args(false);
  find.add_option_function<Words>("--order", set_order, "asc or desc for each sort key, separated by commas")
      ->type_name("ORDERS")
      ->delimiter(',')
      ->allow_extra_args(false);
}

void add_condition_options(CLI::App& find, File_Query& query) {
  find.add_option("--name", query.name, "Part of the name, taken literally; ASCII letters match in either case")
      ->type_name("TEXT");
  auto const set_min_size = [&query](std::string const& text) {
    query.min_size = read_number("--min-size", text, "kMGT");
  };
  find.add_option_function<std::string>("--min-size", set_min_size,
                                        "Least size in bytes, or with k, M, G or T (k: 1024)")
      ->type_name("N");
  auto const set_kind = [&query](std::string const& word) {
    require_word("--kind", word, {"file", "directory", "link", "other", "1", "2", "3", "4"});
    query.kind = kind_from_text(word);
  };
  find.add_option_function<std::string>("--kind", set_kind, "file, directory, link or other, or 1 to 4")
      ->type_name("KIND");
  find.add_option("--host", query.host, "The machine's name")->type_name("NAME");
}

void add_page_options(CLI::App& find, File_Query& query) {
  auto const set_limit = [&query](std::string const& text) { query.limit = read_number("--limit", text); };
  find.add_option_function<std::string>("--limit", set_limit, "Files to a page (default: 20)")->type_name("N");
  auto const set_offset = [&query](std::string const& text) { query.offset = read_number("--offset", text); };
  find.add_option_function<std::string>("--offset", set_offset, "Files to skip (default: 0)")->type_name("N");
}

void add_find(CLI::App& app, Command& command) {
  auto const options = std::make_shared<Find_Options>();
  CLI::App& find = *app.add_subcommand("find", "List the files that meet all conditions, a page at a time.");
  add_read_options(find, options->read);
  add_condition_options(find, options->query);
  add_sort_options(find, options->query);
  add_page_options(find, options->query);
  find.add_flag("--explain", options->explain,
                "Print the statement and its count query instead, for MySQL and for SQLite, with their values");
  find.callback([options, &command] {
    if (options->query.order.size() > options->query.sort.size()) {
      throw CLI::ValidationError("--order", "more orders than sort keys");
    }
    command = [options] {
      ::find(*options);
      return exit_success;
    };
  });
}

// A command that reads the whole catalogue.
void add_report(CLI::App& app, Command& command, char const* name, char const* description,
                void (*report)(Read_Options const&)) {
  auto const options = std::make_shared<Read_Options>();
  CLI::App& subcommand = *app.add_subcommand(name, description);
  add_read_options(subcommand, *options);
  subcommand.callback([options, report, &command] {
    command = [options, report] {
      report(*options);
      return exit_success;
    };
  });
}

struct Drop_Options {
  std::string run;
  std::string store;
};

Exit_Code drop_run(Drop_Options const& options) {
  auto const store = open_store(options.store, Access::change);
  auto const files = Catalog(*store).drop_run(options.run);
  if (!files) throw std::runtime_error("no run " + options.run + " in " + options.store);
  std::cout << "dropped run " << options.run << " with " << grouped(*files) << " files\n";
  return exit_success;
}

void add_drop_run(CLI::App& app, Command& command) {
  auto const options = std::make_shared<Drop_Options>();
  CLI::App& drop = *app.add_subcommand("drop-run", "Delete a run and its files from the catalogue.");
  drop.add_option("RUN", options->run, "The run's id, as 'runs' lists it")->type_name("")->required();
  add_store(drop, options->store);
  drop.callback([options, &command] { command = [options] { return drop_run(*options); }; });
}

void print_error(std::string const& text) { std::cerr << "catalog: " << printable(text) << '\n'; }

int run(int argc, char** argv) {
  CLI::App app("Keeps a catalogue of directory trees in a database and answers questions about it.", "catalog");
  app.footer("Exit codes: 0 success, 1 failed, 2 misuse.");
  app.require_subcommand(1);
  Command command;
  add_index(app, command);
  add_find(app, command);
  add_report(app, command, "stats", "Count the files of each host and kind, and their bytes, over all runs.", stats);
  add_report(app, command, "runs", "List the runs, oldest first. One whose process died is still 'running'.", runs);
  add_drop_run(app, command);
  try {
    app.parse(argc, argv);
  } catch (CLI::ParseError const& error) {
    if (error.get_exit_code() == 0) return app.exit(error);  // a call for help
    print_error(error.what());
    return exit_misuse;
  }
  Exit_Code const code = command();
  if (!std::cout.flush()) throw std::runtime_error("the output cannot be written");
  return code;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (std::exception const& error) {
    print_error(error.what());
    return exit_failed;
  }
}
