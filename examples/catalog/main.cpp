#include <unistd.h>

#include <CLI/CLI.hpp>
#include <array>
#include <exception>
#include <functional>
#include <iostream>
#include <memory>
#include <stdexcept>
#include <string>

#include "backup/store/store.h"
#include "catalog.h"
#include "change.h"
#include "command_words.h"
#include "find_options.h"
#include "index.h"
#include "misuse.h"
#include "open_store.h"
#include "option_values.h"
#include "query.h"
#include "standard_output.h"
#include "store_error.h"
#include "text.h"

namespace {

enum Exit_Code : int { exit_success = 0, exit_failed = 1, exit_misuse = 2, exit_left_out = 3 };

// The command that was asked for: set while the command line is parsed, called afterwards.
using Command = std::function<Exit_Code()>;

std::string machine_name() {
  std::array<char, 256> name{};
  return gethostname(name.data(), name.size() - 1) == 0 ? name.data() : "localhost";
}

void add_store(CLI::App& command, std::string& address) {
  command
      .add_option("--store", address,
                  "The catalogue: an SQLite file, or mysql://[user@]host[:port]/database, or "
                  "mysql://[user@]/database?socket=PATH (mariadb:// is the same), with the password in the "
                  "environment's MYSQL_PWD")
      ->type_name("STORE")
      ->required();
}

void add_read_options(CLI::App& command, Read_Options& options) {
  add_store(command, options.store);
  auto const set_format = [&options](std::string const& word) {
    require_word("--format", word, {"table", "json", "csv"});
    options.format = word == "json" ? Format::json : word == "csv" ? Format::csv : Format::table;
  };
  command
      .add_option_function<std::string>(
          "--format", set_format,
          "table (the default), json, in which bytes that are no UTF-8 become U+FFFD, or csv; times are UTC")
      ->type_name("FORMAT");
}

Exit_Code index_into_store(Index_Options const& options) {
  switch (index_directory(options)) {
    case Index_Result::whole: return exit_success;
    case Index_Result::left_out: return exit_left_out;
    case Index_Result::interrupted: break;
  }
  return exit_failed;
}

void add_index(CLI::App& app, Command& command) {
  auto const options = std::make_shared<Index_Options>();
  options->host = machine_name();
  CLI::App& index = *app.add_subcommand(
      "index",
      "Record everything below a directory as a new run. Symbolic links are recorded, not followed. What cannot be "
      "read or stored is left out with a warning; the exit code is 3 then, and 'runs' shows how much. An interrupted "
      "run keeps what was read.");
  index.add_option("DIR", options->directory, "The directory")->type_name("")->required();
  add_store(index, options->store);
  index.add_option("--host", options->host, "The machine that the files are on")
      ->type_name("NAME")
      ->check(host_name_error)
      ->capture_default_str();
  index.callback([options, &command] { command = [options] { return index_into_store(*options); }; });
}

// Adds a command that calls `work` with the options that `add_options` defines.
template <class Options, class Add_Options>
CLI::App& add_command(CLI::App& app, Command& command, char const* name, char const* description,
                      void (*work)(Options const&), Add_Options add_options) {
  auto const options = std::make_shared<Options>();
  CLI::App& subcommand = *app.add_subcommand(name, description);
  add_options(subcommand, *options);
  subcommand.callback([options, work, &command] {
    command = [options, work] {
      work(*options);
      return exit_success;
    };
  });
  return subcommand;
}

void add_find(CLI::App& app, Command& command) {
  auto const add_conditions = [](CLI::App& subcommand, Find_Options& options) {
    add_request_options(subcommand, options.request);
    add_query_options(subcommand, options.query);
  };
  add_command<Find_Options>(
      app, command, "find",
      "List the files that meet all conditions, a page at a time. Sort, order, limit and "
      "offset given as options win over the request's; the other options add conditions to it. "
      "What it could not use of a request it names; when that is all of it, it lists nothing.",
      find, [&](CLI::App& subcommand, Find_Options& options) {
        add_conditions(subcommand, options);
        add_read_options(subcommand, options.read);
        subcommand.add_flag("--lenient", options.lenient, "List files also when no part of the request can be used");
        subcommand.add_flag("--explain", options.explain, "Print the statements instead, as 'catalog explain' does");
      });
  add_command<Find_Options>(app, command, "explain",
                            "Print what becomes of each key of a request, and the statement and the count query that "
                            "'find' runs for it, for MySQL and for SQLite, with their values.",
                            explain_find, add_conditions);
}

void add_changes(CLI::App& app, Command& command) {
  auto const add_options = [](CLI::App& subcommand, Change_Options& options) {
    add_request_options(subcommand, options.request);
    subcommand.add_flag("--all", options.all, "Mean it when the request has no condition");
    add_store(subcommand, options.store);
  };
  add_command<Change_Options>(app, command, "retire",
                              "Mark the files that meet a request as no longer wanted. Nothing is changed unless each "
                              "key of the request is plainly a condition.",
                              retire, add_options);
  add_command<Change_Options>(app, command, "purge",
                              "Delete the retired files that meet a request. Nothing is deleted unless each key of the "
                              "request is plainly a condition.",
                              purge, add_options);
}

void add_reports(CLI::App& app, Command& command) {
  add_command<Read_Options>(app, command, "stats",
                            "Count the files of each host and kind, their bytes and the retired ones, over all runs.",
                            stats, add_read_options);
  add_command<Read_Options>(
      app, command, "runs",
      "List the runs, oldest first. One whose process died is still 'running'; one that a signal or an error "
      "ended is 'interrupted'.",
      runs, add_read_options);
  add_command<Changes_Options>(
      app, command, "changes", "List the files that one of two runs found and the other did not, by path.", changes,
      [](CLI::App& subcommand, Changes_Options& options) {
        subcommand.add_option("RUN1", options.from, "The earlier run's id, as 'runs' lists it")
            ->type_name("")
            ->required();
        subcommand.add_option("RUN2", options.to, "The later run's id")->type_name("")->required();
        add_read_options(subcommand, options.read);
      });
}

struct Drop_Options {
  std::string run;
  std::string store;
  bool force = false;
};

Exit_Code drop_run(Drop_Options const& options) {
  auto const store = open_store(options.store, Access::change);
  auto const files = Catalog(*store).drop_run(options.run, options.force);
  if (!files) throw std::runtime_error("no run " + options.run + " in " + options.store);
  report_change("dropped run " + options.run + " with " + grouped(*files) + " files");
  return exit_success;
}

void add_drop_run(CLI::App& app, Command& command) {
  auto const options = std::make_shared<Drop_Options>();
  CLI::App& drop = *app.add_subcommand("drop-run", "Delete a run and its files from the catalogue.");
  drop.add_option("RUN", options->run, "The run's id, as 'runs' lists it")->type_name("")->required();
  drop.add_flag("--force", options->force,
                "Drop it also while it is written, which ends its 'index' with an error, and when that has died");
  add_store(drop, options->store);
  drop.callback([options, &command] { command = [options] { return drop_run(*options); }; });
}

void add_help(CLI::App& app, Command& command) {
  auto const word = std::make_shared<std::string>();
  CLI::App& help = *app.add_subcommand("help", "Print this help, or a command's.");
  help.add_option("COMMAND", *word, "The command")->type_name("");
  help.callback([word, &app, &command] {
    command = [word, &app] {
      // The app's own help would be that of the given command, which is this one.
      std::cout << (word->empty() ? app.get_formatter()->make_help(&app, app.get_name(), CLI::AppFormatMode::Normal)
                                  : find_command(app, *word).help("catalog"));
      return exit_success;
    };
  });
}

// Runs the command; its errors name the store.
Exit_Code perform(CLI::App const& app, Command const& command) {
  try {
    return command();
  } catch (backup::Store_Error const& error) {
    std::string const address = app.get_subcommands().front()->get_option("--store")->results().front();
    throw std::runtime_error(store_error_text(address, error));
  }
}

void print_error(std::string const& text) { std::cerr << "catalog: " << printable(text) << '\n'; }

int run(int argc, char** argv) {
  CLI::App app("Keeps a catalogue of directory trees in a database and answers questions about it.", "catalog");
  app.footer("Exit codes: 0 success, 1 failed or interrupted, 2 misuse, 3 indexed, but something was left out.");
  app.require_subcommand(1);
  app.set_version_flag("--version", "catalog " CATALOG_VERSION, "Print the version");
  Command command;
  add_index(app, command);
  add_find(app, command);
  add_reports(app, command);
  add_changes(app, command);
  add_drop_run(app, command);
  add_help(app, command);
  if (argc < 2) {
    std::cerr << app.help();
    return exit_misuse;
  }
  Standard_Output const output;
  if (*argv[1] != '-') find_command(app, argv[1]);
  int code = exit_success;
  try {
    app.parse(argc, argv);
    code = perform(app, command);
  } catch (CLI::ParseError const& error) {
    if (error.get_exit_code() == 0) {
      app.exit(error);  // a call for help, or for the version
    } else {
      require_known_words(app);
      throw Misuse(error.what());
    }
  }
  output.finish();
  return code;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (Misuse const& error) {
    print_error(error.what());
    return exit_misuse;
  } catch (std::bad_alloc const&) {
    print_error("not enough memory");
    return exit_failed;
  } catch (std::exception const& error) {
    print_error(error.what());
    return exit_failed;
  }
}
