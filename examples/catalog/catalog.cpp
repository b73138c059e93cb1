#include "catalog.h"

#include <algorithm>
#include <cstddef>
#include <limits>
#include <stdexcept>

#include "backup/store/store.h"
#include "backup/utils/sql/delete_sql.h"
#include "backup/utils/sql/insert_sql.h"
#include "backup/utils/sql/select_sql.h"
#include "backup/utils/sql/update_sql.h"
#include "made.h"
#include "text.h"

using backup::Store;
using backup::Store_Error;

namespace {

// All full inserts have the same statement text. More rows in a statement gain nothing, fewer cost time.
constexpr std::size_t rows_per_insert = 100;
constexpr std::size_t bytes_per_insert = 1024UL * 1024UL;

// A server ends the connection when it gets more than this at once. No path can reach SQLite's own limit.
std::size_t largest_statement(Store& store) {
  if (store.dialect() != SQL::DB_MYSQL) return std::numeric_limits<std::size_t>::max();
  Select_SQL limit;
  return store.rows(limit.select("@@max_allowed_packet")).at(0).at(0).val().get_uint64();
}

std::size_t bytes_of(File const& file) {
  constexpr std::size_t other_columns = 256;
  return file.path.size() + file.name.size() + file.owner.size() + other_columns;
}

// The end of the rows that one statement inserts from `begin` on; one row at least.
std::size_t end_of_insert(std::vector<File> const& files, std::size_t begin, std::size_t most_bytes) {
  std::size_t const most = std::min(begin + rows_per_insert, files.size());
  std::size_t end = begin + 1;
  std::size_t bytes = bytes_of(files[begin]);
  while (end < most && (bytes += bytes_of(files[end])) <= most_bytes) ++end;
  return end;
}

void set_file(Insert_SQL& insert, Byte_String const& id, Binding_Value const& run, File const& file) {
  insert.value("id", id)
      .value("run_uuid", run)
      .value("path", file.path)
      .value("name", file.name)
      .value("kind", static_cast<int>(file.kind))
      .value("size", file.size)
      .value("modified", file.modified)
      .value("owner", file.owner);
}

// Adds the condition that `ids` selects the row. MySQL does not change a table that the same statement reads directly;
// DISTINCT makes it read the ids from a table of their own.
void choose(Where_SQL& rows, Select_SQL const& ids) {
  Select_SQL& chosen = made(made(rows.and_filter()).add_key_select_sql_in_item("id"));
  chosen.distinct(true).add_key("id", nullptr);
  made(chosen.sql_table("chosen")) = ids;
}

// Locks the run's row; throws when the run was dropped meanwhile.
void update_run(Store& store, Update_SQL& update, Binding_Value const& run) {
  made(update.and_filter()).add_kv_eq_item("id", run);
  if (store.run(update) > 0) return;
  throw std::runtime_error("run " + uuid_text(run.val().get_str()) + " was dropped while it was written");
}

// Locks the run's row by an update that changes nothing; false when there is no such row.
bool lock_run(Store& store, std::string const& run) {
  Update_SQL lock("runs");
  made(lock.set_sql("complete")).sql("complete", true);
  made(lock.and_filter()).add_key_uuid_eq_item("id", run);
  return store.run(lock) > 0;
}

bool has_ended(Store& store, std::string const& run) {
  Select_SQL ended("runs");
  Filter_SQL& filter = made(ended.and_filter());
  filter.add_key_uuid_eq_item("id", run);
  filter.add_not_null_item("ended");
  return store.count(ended) > 0;
}

unsigned long long delete_by(Store& store, char const* table, char const* key, std::string const& run) {
  Delete_SQL rows(table);
  made(rows.and_filter()).add_key_uuid_eq_item(key, run);
  return store.run(rows);
}

}  // namespace

Catalog::Catalog(Store& store) : store_(store), most_bytes_(largest_statement(store)) {}

Binding_Value Catalog::start_run(std::string const& host, std::string const& directory, long long time) {
  Insert_SQL new_host("hosts");
  new_host.or_expr(Insert_SQL::OR_IGNORE).value_new_uuid("id").value("name", host);

  Insert_SQL new_run("runs");
  new_run.value_new_uuid("id");
  Select_SQL& host_id = made(new_run.value_select_sql("host_uuid"));
  host_id.table("hosts", nullptr).add_key("id", nullptr);
  made(host_id.and_filter()).add_kv_eq_item("name", host);
  new_run.value("directory", directory).value("started", time).value("complete", false).value("left_out", 0);

  store_.transact([&] {
    store_.run(new_host);
    store_.run(new_run);
  });
  return new_run.entries().back().at("id").val();
}

std::vector<Refused_File> Catalog::add_files(Binding_Value const& run, std::vector<File> const& files,
                                             unsigned long long left_out) {
  std::vector<Refused_File> refused;
  store_.transact([&] {
    refused.clear();
    Update_SQL update("runs");
    update_run(store_, update.set("left_out", left_out), run);
    std::size_t end = 0;
    for (std::size_t begin = 0; begin < files.size(); begin = end) {
      end = end_of_insert(files, begin, std::min(bytes_per_insert, most_bytes_));
      insert(run, files, begin, end, refused);
    }
  });
  return refused;
}

void Catalog::insert(Binding_Value const& run, std::vector<File> const& files, std::size_t begin, std::size_t end,
                     std::vector<Refused_File>& refused) {
  bool const is_one = end - begin == 1;
  if (is_one && bytes_of(files[begin]) > most_bytes_) {
    refused.push_back({begin, "the server takes " + std::to_string(most_bytes_) + " bytes (max_allowed_packet)"});
    return;
  }
  Insert_SQL insert("files");
  for (std::size_t i = begin; i < end; ++i) {
    if (i > begin) insert.new_entry();
    set_file(insert, ids_.next(), run, files[i]);
  }
  try {
    store_.run(insert, Store::BY_POSITION);  // a database finds a mark faster by its place than by its name
  } catch (Store_Error const& error) {
    if (store_.failure(error) != Store::REFUSED_VALUE) throw;
    if (is_one) {
      refused.push_back({begin, error.message()});
      return;
    }
    for (std::size_t i = begin; i < end; ++i) this->insert(run, files, i, i + 1, refused);
  }
}

void Catalog::end_run(Binding_Value const& run, bool complete, unsigned long long left_out, long long time) {
  store_.transact([&] {
    Update_SQL end("runs");
    update_run(store_, end.set("ended", time).set("complete", complete).set("left_out", left_out), run);
  });
}

std::optional<unsigned long long> Catalog::drop_run(std::string const& run, bool force) {
  std::optional<unsigned long long> files;
  store_.transact([&] {
    files.reset();
    if (!lock_run(store_, run)) return;
    if (!force && !has_ended(store_, run)) {
      throw std::runtime_error("run " + run + " is being written, or its process died: --force drops it");
    }
    files = delete_by(store_, "files", "run_uuid", run);
    delete_by(store_, "runs", "id", run);
  });
  return files;
}

unsigned long long Catalog::retire(Select_SQL const& files, long long time) {
  Update_SQL retire("files");
  retire.set_time("retired", time);
  choose(retire, files);
  return run_alone(retire);
}

unsigned long long Catalog::remove(Select_SQL const& files) {
  Delete_SQL remove("files");
  choose(remove, files);
  return run_alone(remove);
}

unsigned long long Catalog::run_alone(SQL const& statement) {
  unsigned long long rows = 0;
  store_.transact([&] { rows = store_.run(statement); });
  return rows;
}
