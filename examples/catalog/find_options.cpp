#include "find_options.h"

#include <CLI/CLI.hpp>

#include "option_values.h"
#include "questions.h"
#include "request.h"

namespace {

void add_sort_options(CLI::App& command, File_Query& query) {
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
  command.add_option_function<Words>("--sort", set_sort, "Columns to sort by, separated by commas (default: path)")
      ->type_name("KEYS")
      ->delimiter(',')
      ->allow_extra_args(false);
  command.add_option_function<Words>("--order", set_order, "asc or desc for each sort key, separated by commas")
      ->type_name("ORDERS")
      ->delimiter(',')
      ->allow_extra_args(false);
}

void add_condition_options(CLI::App& command, File_Query& query) {
  auto const set_name = [&query](std::string const& text) {
    if (text.size() > 4096) throw CLI::ValidationError("--name", "longer than any name");
    query.name = text;
  };
  command
      .add_option_function<std::string>("--name", set_name,
                                        "Part of the name, taken literally, also the case of letters")
      ->type_name("TEXT");
  auto const set_min_size = [&query](std::string const& text) {
    query.min_size = read_number("--min-size", text, "kMGT");
  };
  command
      .add_option_function<std::string>("--min-size", set_min_size,
                                        "Least size in bytes, or with k, M, G or T (k: 1024)")
      ->type_name("N");
  auto const set_kind = [&query](std::string const& word) {
    require_word("--kind", word, {"file", "directory", "link", "other", "1", "2", "3", "4"});
    query.kind = kind_from_text(word);
  };
  command.add_option_function<std::string>("--kind", set_kind, "file, directory, link or other, or 1 to 4")
      ->type_name("KIND");
  command.add_option("--host", query.host, "The machine's name, exactly")->type_name("NAME");
}

void add_page_options(CLI::App& command, File_Query& query) {
  auto const set_limit = [&query](std::string const& text) { query.limit = read_number("--limit", text); };
  command.add_option_function<std::string>("--limit", set_limit, "Files to a page (default: 20)")->type_name("N");
  auto const set_offset = [&query](std::string const& text) { query.offset = read_number("--offset", text); };
  command.add_option_function<std::string>("--offset", set_offset, "Files to skip (default: 0)")->type_name("N");
}

}  // namespace

void add_query_options(CLI::App& command, File_Query& query) {
  add_condition_options(command, query);
  add_sort_options(command, query);
  add_page_options(command, query);
}

void add_request_options(CLI::App& command, Request_Source& request) {
  CLI::Option* const query =
      command.add_option("REQUEST", request.query, "Conditions as a query string, see below")->type_name("");
  command.add_option("--json", request.json, "The same as a JSON object; not together with REQUEST")
      ->type_name("OBJECT")
      ->excludes(query);
  command
      .add_option("--document", request.document,
                  "A filter document, JSON, '-' for the standard input; its conditions are added to the others. It "
                  "is trusted: it names the columns of files f, runs r and hosts h itself and may hold SQL. At most " +
                      std::to_string(most_document_bytes >> 20U) + " MiB")
      ->type_name("FILE");
  command.footer(
      "A request: 'GE_size=1024&LK_name=%25.h&OR=EQ_kind%3D1%26NL_retired%3D'; where files are listed, also "
      "'sort=size,name&order=desc&limit=20&offset=40'.\n"
      "Keys: " +
      request_keys() +
      ".\n"
      "Before a key, EQ_ (the default), NE_, LT_, LE_, GT_, GE_, LK_, NK_ (like and not like), IN_, NI_ (in and not in "
      "a list with commas, uuids in it without hyphens), NL_ and NN_ (null and not null). AND and OR hold a query "
      "string or an object. Of a key given twice the last counts, in a group both. kind is 1 for a file, 2 for a "
      "directory, 3 for a link, 4 for another; modified is in POSIX seconds, retired a text YYYY-MM-DD hh:mm:ss in "
      "UTC; complete is 1 "
      "for files of a run that came to its end. host is compared in lower case. At most 200 conditions, 16 levels of "
      "groups and 4,096 bytes in a pattern.\n"
      "Exit codes: 0 success, 1 failed, 2 misuse.");
}
