#include "catalog.h"

#include <algorithm>
#include <cstddef>

#include "backup/store/store.h"
#include "backup/utils/sql/delete_sql.h"
#include "backup/utils/sql/insert_sql.h"
#include "backup/utils/sql/select_sql.h"
#include "backup/utils/sql/update_sql.h"
#include "made.h"

namespace {

// One statement text serves all full inserts. More rows to a statement gain nothing, fewer cost time.
constexpr std::size_t rows_per_insert = 100;

void set_file(Insert_SQL& insert, Binding_Value const& run, File const& file) {
  insert.value_new_uuid("id")
      .value("run_uuid", run)
      .value("path", file.path)
      .value("name", file.name)
      .value("kind", static_cast<int>(file.kind))
      .value("size", file.size)
      .value("modified", file.modified)
      .value("owner", file.owner);
}

// The condition that a row is one of those that `ids` selects. MySQL does not change a table that the same statement
// reads, but through a table of its own, which DISTINCT makes sure of.
void choose(Where_SQL& rows, Select_SQL const& ids) {
  Select_SQL& chosen = made(made(rows.and_filter()).add_key_select_sql_in_item("id"));
  chosen.distinct(true).add_key("id", nullptr);
  made(chosen.sql_table("chosen")) = ids;
}

}  // namespace

Catalog::Catalog(Store& store) : store_(store) {}

Binding_Value Catalog::start_run(std::string const& host, std::string const& directory, long long time) {
  Transaction transaction(store_);

  Insert_SQL new_host("hosts");
  new_host.or_expr(Insert_SQL::OR_IGNORE).value_new_uuid("id").value("name", host);
  store_.run(new_host);

  Insert_SQL new_run("runs");
  new_run.value_new_uuid("id");
  Select_SQL& host_id = made(new_run.value_select_sql("host_uuid"));
  host_id.table("hosts", nullptr).add_key("id", nullptr);
  made(host_id.and_filter()).add_kv_eq_item("name", host);
  new_run.value("directory", directory).value("started", time).value("complete", false);
  store_.run(new_run);

  transaction.commit();
  return new_run.entries().back().at("id").val();
}

void Catalog::add_files(Binding_Value const& run, std::vector<File> const& files) {
  Transaction transaction(store_);
  for (std::size_t begin = 0; begin < files.size(); begin += rows_per_insert) {
    std::size_t const end = std::min(begin + rows_per_insert, files.size());
    Insert_SQL insert("files");
    for (std::size_t i = begin; i < end; ++i) {
      if (i > begin) insert.new_entry();
      set_file(insert, run, files[i]);
    }
    store_.run(insert, Store::BY_POSITION);  // a database finds a mark faster by its place than by its name
  }
  transaction.commit();
}

void Catalog::end_run(Binding_Value const& run, bool complete, long long time) {
  Update_SQL end("runs");
  end.set("ended", time).set("complete", complete);
  made(end.and_filter()).add_kv_eq_item("id", run);
  store_.run(end);
}

std::optional<unsigned long long> Catalog::drop_run(std::string const& run) {
  auto const delete_by = [&](char const* table, char const* key) {
    Delete_SQL rows(table);
    made(rows.and_filter()).add_key_uuid_eq_item(key, run);
    return store_.run(rows);
  };
  Transaction transaction(store_);
  unsigned long long const files = delete_by("files", "run_uuid");
  if (delete_by("runs", "id") == 0) return std::nullopt;
  transaction.commit();
  return files;
}

unsigned long long Catalog::retire(Select_SQL const& files, long long time) {
  Update_SQL retire("files");
  retire.set_time("retired", time);
  choose(retire, files);
  return store_.run(retire);
}

unsigned long long Catalog::remove(Select_SQL const& files) {
  Delete_SQL remove("files");
  choose(remove, files);
  return store_.run(remove);
}
