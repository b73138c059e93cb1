#include <fcntl.h>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <pwd.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <functional>
#include <iterator>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "backup/utils/sql/select_sql.h"
#include "catalog/tree_walk.h"
#include "json_spirit/json_spirit.h"
#include "support/databases.h"

namespace fs = std::filesystem;

namespace {

using backup::MySQL_Store;
using backup::SQLite_Store;
using backup::Store;
using backup::Transaction;

using Names = std::vector<std::string>;

struct Outcome {
  int code;
  std::string out;
  std::string err;
};

std::string content(fs::path const& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

std::string replaced(std::string text, std::string const& what, std::string const& by) {
  for (std::size_t at = 0; (at = text.find(what, at)) != std::string::npos; at += by.size()) {
    text.replace(at, what.size(), by);
  }
  return text;
}

Names column(json_spirit::Object const& page, char const* name) {
  Names values;
  for (auto const& row : page.at("rows").get_array()) values.push_back(row.get_obj().at(name).get_str());
  return values;
}

// The program on a small tree of its own with odd names, all of 2020-01-02 03:04:05 UTC, indexed as host h1.
class Catalog : public ::testing::TestWithParam<Database> {
protected:
  void SetUp() override {
    std::string pattern = (fs::canonical(fs::temp_directory_path()) / "catalog-XXXXXX").string();
    ASSERT_NE(mkdtemp(pattern.data()), nullptr);
    home_ = pattern;
    fs::create_directories(home_ / "tree/sub");
    std::ofstream(home_ / "tree/a.txt") << "hello";
    std::ofstream(home_ / "tree/\"b\", 100%.TXT") << std::string(2000, 'b');
    std::ofstream(home_ / "tree/bad,\xFF") << "";
    std::ofstream(home_ / "tree/new\nline") << "1";
    std::ofstream(home_ / "tree/sub/a2.txt") << std::string(3000, 'a');
    fs::create_symlink("a.txt", home_ / "tree/link");
    timespec const times[2] = {{1577934245, 0}, {1577934245, 0}};
    for (auto const& entry : fs::recursive_directory_iterator(home_ / "tree")) {
      ASSERT_EQ(utimensat(AT_FDCWD, entry.path().c_str(), times, AT_SYMLINK_NOFOLLOW), 0);
    }
    open_empty(GetParam());
    ASSERT_EQ(run("index tree --host h1").code, 0);
  }
  void TearDown() override { std::system(("rm -rf '" + home_.string() + "'").c_str()); }  // at any depth

  // Runs a shell command in the test's directory, which stands as DIR in the texts. $C is the program.
  Outcome shell(std::string const& command) {
    int const status =
        std::system(("cd '" + home_.string() + "'; C='" CATALOG "'; {\n" + command + "\n} >out 2>err").c_str());
    auto const text = [&](char const* file) { return replaced(content(home_ / file), home_.string(), "DIR"); };
    return {WIFEXITED(status) ? WEXITSTATUS(status) : -1, text("out"), text("err")};
  }
  // Runs the program, on the test's store unless the arguments name one.
  Outcome run(std::string const& arguments) {
    bool const names_store = arguments.empty() || arguments.find("--store") != std::string::npos;
    return shell("\"$C\" " + arguments + (names_store ? "" : " --store '" + store_ + "'"));
  }
  // `deep`: nested directories. The first 2,700 have short names and a file beside each; the others have the longest
  // possible names.
  void make_deep() {
    int directory = open(home_.c_str(), O_RDONLY | O_DIRECTORY);
    for (int level = 0; level < 3000; ++level) {
      std::string const name = level == 0 ? "deep" : level < 2700 ? "d" : std::string(255, 'e');
      if (level < 2700) close(openat(directory, std::to_string(level).c_str(), O_CREAT | O_WRONLY, 0600));
      ASSERT_EQ(mkdirat(directory, name.c_str(), 0700), 0);
      int const next = openat(directory, name.c_str(), O_RDONLY | O_DIRECTORY);
      close(std::exchange(directory, next));
    }
    close(directory);
  }
  std::unique_ptr<Store> database() const {
    if (GetParam() == Database::sqlite) return std::make_unique<SQLite_Store>((home_ / "store.db").string());
    return std::make_unique<MySQL_Store>(store_);
  }
  // True when the file appears within half a minute.
  bool comes(char const* file) const {
    for (int i = 0; i < 300 && content(home_ / file).empty(); ++i) usleep(100'000);
    return !content(home_ / file).empty();
  }
  json_spirit::Object page(std::string const& arguments) {
    json_spirit::Value value;
    json_spirit::read_string_or_throw(run(arguments + " --format json").out, value);
    return value.get_obj();
  }
  long long total(std::string const& arguments) { return page(arguments).at("total").get_int64(); }

  fs::path home_;
  std::string const store_ = GetParam() == Database::sqlite ? "store.db" : mariadb_url(own_database());
  std::string const user_ = getpwuid(geteuid())->pw_name;
};

class Catalog_File : public Catalog {};
class Catalog_Server : public Catalog {};

INSTANTIATE_TEST_SUITE_P(Stores, Catalog, ::testing::Values(Database::sqlite, Database::mariadb),
                         ::testing::PrintToStringParamName());
INSTANTIATE_TEST_SUITE_P(Stores, Catalog_File, ::testing::Values(Database::sqlite));
INSTANTIATE_TEST_SUITE_P(Stores, Catalog_Server, ::testing::Values(Database::mariadb));

TEST_P(Catalog, find_and_stats_print_aligned_tables_without_control_characters) {
  std::string const text = R"(NAME       KIND        SIZE  MODIFIED             RETIRED  #  HOST  PATH
a.txt      file           5  2020-01-02 03:04:05           @  h1    DIR/tree/a.txt
bad,\xff   file           0  2020-01-02 03:04:05           @  h1    DIR/tree/bad,\xff
new\nline  file           1  2020-01-02 03:04:05           @  h1    DIR/tree/new\nline
a2.txt     file       3,000  2020-01-02 03:04:05           @  h1    DIR/tree/sub/a2.txt
sub        directory      0  2020-01-02 03:04:05           @  h1    DIR/tree/sub
2-6 of 7
)";
  std::size_t const width = std::max<std::size_t>(user_.size(), 5);
  std::string const title = "OWNER" + std::string(width - 5, ' ');
  std::string const owner = user_ + std::string(width - user_.size(), ' ');
  EXPECT_EQ(run("find --sort kind,path --offset 1 --limit 5").out, replaced(replaced(text, "@", owner), "#", title));
  EXPECT_EQ(run("stats").out, R"(HOST  KIND       FILES  BYTES  RETIRED
h1    file           5  5,006        0
h1    directory      1      0        0
h1    link           1      0        0
1-3 of 3
)");
  database()->run("UPDATE files SET size=9223372036854775807 WHERE kind=1");  // their sum does not fit 64 bits
  EXPECT_THAT(run("stats").out, ::testing::HasSubstr("  46,116,860,184,273,879,035  "));
  EXPECT_THAT(run("stats --format csv").out, ::testing::HasSubstr("\r\nh1,file,5,46116860184273879035,0\r\n"));
  EXPECT_THAT(run("stats --format json").out, ::testing::HasSubstr(R"("bytes":"46116860184273879035","files":5)"));
}

TEST_P(Catalog, csv_quotes_what_needs_it_and_keeps_every_byte) {
  std::string const text =
      "name,kind,size,modified,retired,owner,host,path\r\n"
      "\"\"\"b\"\", 100%.TXT\",file,2000,2020-01-02 03:04:05,,@,h1,\"DIR/tree/\"\"b\"\", 100%.TXT\"\r\n"
      "a.txt,file,5,2020-01-02 03:04:05,,@,h1,DIR/tree/a.txt\r\n"
      "\"bad,\xFF\",file,0,2020-01-02 03:04:05,,@,h1,\"DIR/tree/bad,\xFF\"\r\n"
      "\"new\nline\",file,1,2020-01-02 03:04:05,,@,h1,\"DIR/tree/new\nline\"\r\n";
  EXPECT_EQ(run("find --kind file --limit 4 --format csv").out, replaced(text, "@", user_));
}

TEST_P(Catalog, no_name_controls_a_terminal) {
  fs::create_directory(home_ / "odd");
  std::ofstream(home_ / "odd/\x1B\xC2\x9B\xE2\x80\xAE");
  ASSERT_EQ(run("index odd --host odd").code, 0);
  EXPECT_THAT(run("find host=odd --format json").out, ::testing::HasSubstr(R"("name":"\u001B\u009B\u202E",)"));
  EXPECT_THAT(shell("script -qec \"$C find host=odd --format csv --store '" + store_ + "'\" /dev/null").out,
              ::testing::HasSubstr("\n\\x1b\\xc2\\x9b\\xe2\\x80\\xae,file,0,"));
}

TEST_P(Catalog, ends_with_its_reader) {
  auto const find = [&](char const* arguments, char const* reader) {  // the client library ignores SIGPIPE here
    return shell("{ sleep 0.3; env --default-signal=PIPE \"$C\" find --store '" + store_ + "' " + arguments +
                 "; echo $? >&2; } | " + reader);
  };
  EXPECT_EQ(find("", "true").err, "141\n");
  if (GetParam() == Database::sqlite) return;
  MySQL_Store server(mariadb_url(own_database()));
  server.run(
      "INSERT INTO files SELECT UNHEX(MD5(seq)),run_uuid,CONCAT(path,seq),name,kind,size,modified,owner,retired"
      " FROM files,seq_1_to_50000 WHERE name='sub'");
  auto const kills = [&] {
    Select_SQL status;
    status.from("information_schema.global_status").select("variable_value").where("variable_name='COM_KILL'", true);
    return std::stoll(server.rows(status).at(0).at(0).val().get_str());
  };
  long long const before = kills();
  for (std::string const format : {"table", "csv", "json"}) {
    EXPECT_EQ(find(("--limit 99999 --format " + format).c_str(), "head -c1 >&2").err.substr(1), "141\n");
  }
  EXPECT_EQ(kills() - before, 3);  // the server stops sending rows that nobody reads
}

TEST_P(Catalog_File, help_and_version_are_there_for_the_asking) {
  Outcome const help = shell("\"$C\" --help");
  EXPECT_EQ(help.code, 0);
  EXPECT_EQ(shell("\"$C\" help").out, help.out);
  EXPECT_EQ(shell("\"$C\" help find").out, shell("\"$C\" find --help").out);
  EXPECT_THAT(shell("\"$C\" --version").out, ::testing::ContainsRegex("^catalog [0-9.]+\n$"));
  Outcome const nothing = shell("\"$C\"");
  EXPECT_EQ(nothing.code, 2);
  EXPECT_EQ(nothing.err, help.out);
}

TEST_P(Catalog, explain_prints_the_fate_of_each_key_and_both_dialects_named_and_positional) {
  std::string const keys = R"(keys
  condition: GE_size
  condition: OR/EQ_kind
  ignored: OR/AND/colour
  condition: OR/AND/NL_retired
  condition: OR/AND/IN_owner
  condition: OR/complete
  control: limit
  condition: name
  control: offset
  loose: order='DESC': anything but 'desc' ascends
  control: sort
)";
  std::string const select =
      "SELECT f.name `name`,f.kind `kind`,f.size `size`,f.modified `modified`,f.retired `retired`,f.owner `owner`,"
      "h.name `host`,f.path `path`";
  std::string const left_joins =
      "`files` `f` LEFT JOIN `runs` `r` ON r.id=f.run_uuid LEFT JOIN `hosts` `h` ON h.id=r.host_uuid";
  std::string const ordered_joins =
      "`files` `f` STRAIGHT_JOIN `runs` `r` FORCE INDEX (PRIMARY) ON r.id=f.run_uuid"
      " STRAIGHT_JOIN `hosts` `h` FORCE INDEX (PRIMARY) ON h.id=r.host_uuid";
  std::string const where =
      " FROM " + left_joins +
      " WHERE (`f`.`size`>=:1) AND ((`f`.`kind`=:2) OR ((`f`.`retired` IS NULL) AND (`f`.`owner` IN ('a','o''b')))"
      " OR (`r`.`complete`=:3)) AND (`f`.`name`=:4) AND (f.name LIKE :__search_3 ESCAPE '|')";
  std::string marks = where;
  for (char const* const name : {":__search_3", ":1", ":2", ":3", ":4"}) marks = replaced(marks, name, "?");
  std::string const tail = " ORDER BY f.name ASC,f.size ASC,f.path ASC,f.id ASC LIMIT 50 OFFSET 40\n";
  std::string const values =
      "      1 = 1024\n      2 = 1\n      3 = true\n      4 = \"Report\"\n      5 = \"%100|%%\"\n";
  std::string const bindings = replaced(replaced(values, "      ", "      :"), ":5", ":__search_3");
  std::string const texts = "  statement, by name\n    " + select + where + tail + bindings +
                            "  statement, by position\n    " + select + marks + tail + values +
                            "  count query, by name\n    SELECT COUNT(*)" + where + "\n" + bindings +
                            "  count query, by position\n    SELECT COUNT(*)" + marks + "\n" + values;
  EXPECT_EQ(shell("\"$C\" explain 'name=Report&GE_size=1024&OR=EQ_kind%3D1%26AND%3Dcolour%253Dred%2526NL_retired%253D"
                  "%2526IN_owner%253Da,o%252527b%26complete%3D1&sort=name,size&order=DESC&limit=50&offset=100'"
                  " --name 100% --offset 40")
                .out,
            keys + "MySQL\n" + replaced(texts, left_joins, ordered_joins) + "SQLite\n" + texts);
  std::string const explained = shell("\"$C\" explain 'kind=1' --limit 3").out;
  EXPECT_EQ(run("find 'kind=1' --limit 3 --explain").out, explained);
  EXPECT_NE(explained.find("SELECT COUNT(*) FROM `files` `f` WHERE (`f`.`kind`=?)"), std::string::npos);
}

TEST_P(Catalog, requests_find_what_a_walk_of_the_tree_selects) {
  std::ofstream(home_ / "large.json")
      << R"({"op":"AND","v":[{"op":"GE","k":"f.size","v":5},{"op":"OR","v":["f.name LIKE 'a%'",)"
         R"({"op":"EQ","k":"f.kind","v":[2,3]}]},{"op":"EQ","k":"f.run_uuid","v":")"
      << column(page("runs"), "id").front() << R"("}]})";
  using Entry = fs::directory_entry;
  auto const size = [](Entry const& e) { return e.is_regular_file() && !e.is_symlink() ? e.file_size() : 0; };
  auto const large = [&](Entry const& e) { return size(e) >= 5 && e.path().filename().string()[0] == 'a'; };
  auto const all = [](Entry const&) { return true; };
  struct {
    char const* arguments;
    std::function<bool(Entry const&)> selects;
  } const cases[] = {
      {"''", all},
      {"'host=H1&complete=1&NL_retired='", all},
      {"'host=h2'", [](Entry const&) { return false; }},
      {"'GE_size=5&LK_name=a%25'", large},
      {"'OR=size%3D5%26AND%3Dkind%253D1%2526GT_size%253D2000'",
       [&](Entry const& e) { return size(e) > 2000 || size(e) == 5; }},
      {"'IN_kind=2,3'", [](Entry const& e) { return e.is_directory() || e.is_symlink(); }},
      {R"(--json '{"OR":{"IN_size":[5,2000],"kind":2},"NE_name":"a.txt"}')",
       [&](Entry const& e) { return size(e) == 2000 || e.is_directory(); }},
      {R"(--json '{"AND":{"OR":"name=a.txt&name=link"},"complete":true}')",
       [](Entry const& e) { return e.path().filename() == "a.txt" || e.path().filename() == "link"; }},
      {"--document large.json", large},
      {"'LT_size=100' --document - <large.json", [&](Entry const& e) { return large(e) && size(e) < 100; }},
      {"'GE_size=5' --name a --kind file", large},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.arguments);
    Names paths;
    for (auto const& entry : fs::recursive_directory_iterator(home_ / "tree")) {
      std::string const path = replaced(entry.path().string(), home_.string(), "DIR");
      if (c.selects(entry)) paths.push_back(replaced(path, "\xFF", "\xEF\xBF\xBD"));
    }
    EXPECT_THAT(column(page(std::string("find ") + c.arguments), "path"), ::testing::UnorderedElementsAreArray(paths));
  }
}

TEST_P(Catalog, find_filters_sorts_pages_and_names_what_it_could_not_use) {
  std::string const bad = "bad,\xEF\xBF\xBD";  // in JSON a byte that is no UTF-8 is replaced
  std::string const b = "\"b\", 100%.TXT";
  struct {
    char const* arguments;
    char const* complaints;
    Names names;
  } const cases[] = {
      {"", "", {b, "a.txt", bad, "link", "new\nline", "sub", "a2.txt"}},
      {"--name txt --sort size", "", {"a.txt", "a2.txt"}},
      {"--name 0%.", "", {b}},
      {"--name ',\xFF'", "", {bad}},
      {"--kind file --name a --min-size 1k --host h1", "", {"a2.txt"}},
      {"--sort kind,name --order desc,asc --limit 3 --offset 1", "", {"sub", b, "a.txt"}},
      {"'sort=size&order=desc&limit=2&offset=1&kind=1'", "", {b, "a.txt"}},
      {"'sort=size&limit=9&offset=5' --sort name --order desc --limit 1 --offset 0", "", {"sub"}},
      {"'order=desc' --limit 1", "", {"a2.txt"}},
      {"'shape=1&OR=colour%3Dred%26name%3Dsub'", "ignored: OR/colour, shape\n", {"sub"}},
      {"'name=a.txt&name=sub'", "repeated, the last counts: name\n", {"sub"}},
      {"'IN_kind=2,file&name=sub'",
       "failed: IN_kind='2,file': 1 is a file, 2 a directory, 3 a link, 4 another\n",
       {"sub"}},
      {"'size=1k'",
       "loose: size='1k': no 64-bit integer; the digits at its start count, none are 0, too many 2^63-1\n",
       {"new\nline"}},
      {"'*.h&run=1' --name ub --lenient", "failed: run='1': a uuid is wanted\nignored: *.h\n", {"sub"}},
      {"'complete=false&name=sub'", "loose: complete='false': neither 0 nor 1; anything but 0 is true\n", {"sub"}},
      {"'NI_size=&name=sub&AND='", "loose: AND='': an empty group\nloose: NI_size='': an empty list\n", {"sub"}},
      {"'run=1&name=sub'", "failed: run='1': a uuid is wanted\n", {"sub"}},
      {"'sort=f.id&name=sub'", "failed: sort='f.id': keys of a request are wanted\n", {"sub"}},
      {R"(--json '{"OR":{"name":"x","size":true}}' --name ub --lenient)",
       "failed: OR/size='true': an integer is wanted\n",
       {"sub"}},
      {R"(--json '{"IN_run":["x"],"name":"sub"}')", "failed: IN_run='[\"x\"]': uuids are wanted\n", {"sub"}},
      {R"(--json '{"limit":1.5,"name":"sub"}')", "failed: limit='1.5': an integer is wanted\n", {"sub"}},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.arguments);
    std::string const command = std::string("find ") + c.arguments;
    EXPECT_EQ(replaced(run(command).err, "catalog: ", ""), c.complaints);
    EXPECT_EQ(column(page(command), "name"), c.names);
  }
  for (char const* const part : {"--limit 7", "--limit 0", "--offset 3", "--offset 9"}) {
    EXPECT_EQ(total(std::string("find ") + part), 7) << part;  // counted, or told by the page
    EXPECT_THAT(run(std::string("find ") + part).out, ::testing::EndsWith(" of 7\n")) << part;
  }
}

TEST_P(Catalog, hostile_requests_are_answered_or_refused_and_change_nothing) {
  auto const repeated = [](std::string const& text, int times) {
    std::string all;
    for (int i = 0; i < times; ++i) all += text;
    return all;
  };
  std::string pairs;
  for (int i = 0; i < 10000; ++i) pairs += "k" + std::to_string(i) + "=1&";
  auto const nested = [&](int levels) {
    return "--json '" + repeated(R"({"LT_size":0,"OR":)", levels) + "{\"size\":-1}" + repeated("}", levels) + '\'';
  };
  std::string const uuid = "00000000-0000-4000-8000-000000000000";
  struct {
    std::string request;
    int code;
    std::optional<int> explained{};
  } const cases[] = {
      {"'name=%27;DROP TABLE files;--&owner=\\&path=\"'", 0},
      {"'IN_name=%27);DROP TABLE files;--,\\,\",`,:1,?&size=-5'", 0},
      {"'name=%00&OR=IN_name%3Da%2500b&IN_path=a%00b'", 2, 0},
      {"'sort=" + repeated("name,", 3000) + "&name=x'", 0},
      {"'sort=size;DROP TABLE files&order=desc;&limit=-9223372036854775808&offset=-5&name=x'", 0},
      {"'LK_name=" + repeated("%25", 30000) + "x'", 2, 0},
      {"'IN_run=" + uuid + "&run=" + uuid + "'", 0},
      {R"(--json '{"size":18446744073709551615,"name":{"a":[1.5]},"IN_path":[{"a":"\u0000"},null,1e308]}')", 0},
      {"'" + pairs + "name=x'", 0},
      {"'OR=" + repeated("size%3D-1%26", 199) + "'", 0},
      {"'OR=" + repeated("size%3D-1%26", 9000) + "'", 2},
      {nested(16), 0},
      {nested(17), 2},
      {"'" + repeated("AND=", 16000) + "size=1'", 2},
  };
  std::string const before = run("find --format csv").out;
  for (auto const& c : cases) {
    SCOPED_TRACE(c.request.substr(0, 80));
    Outcome const found = run("find " + c.request);
    EXPECT_EQ(found.code, c.code) << found.err;
    EXPECT_THAT(run("purge " + c.request), ::testing::Field(&Outcome::code, ::testing::AnyOf(0, 2)));
    EXPECT_EQ(shell("\"$C\" explain " + c.request).code, c.explained.value_or(c.code));
  }
  EXPECT_EQ(run("find --format csv").out, before);
}

TEST_P(Catalog, retire_and_purge_take_plain_conditions_only) {
  struct {
    char const* command;
    char const* done;     // empty: refused
    char const* refusal;  // after "nothing changed, "
    long long retired;
    long long total;
  } const steps[] = {
      {"retire", "", "no condition: --all is needed to have 7 files retired", 0, 7},
      {"retire --json '{}'", "", "no condition: --all is needed to have 7 files retired", 0, 7},
      {"retire NE_name", "", "a key is not plainly a condition; loose: NE_name='': an empty text", 0, 7},
      {"retire LK_name=%FF", "",
       "a key is not plainly a condition; loose: LK_name='\\xff': no UTF-8; SQLite finds other such bytes too", 0, 7},
      {"retire 'LK_name=a%25&colour=1'", "", "a key is not plainly a condition; ignored: colour", 0, 7},
      {"retire 'run=1' --all", "", "a key is not plainly a condition; failed: run='1': a uuid is wanted", 0, 7},
      {"retire 'name=x&limit=1' --all", "", "a key is not plainly a condition; control: limit", 0, 7},
      {"retire 'NI_size='", "", "a key is not plainly a condition; loose: NI_size='': an empty list", 0, 7},
      {"retire 'name=x&name=a.txt'", "", "a key is not plainly a condition; repeated, the last counts: name", 0, 7},
      {"retire 'GE_size=%2B-5'", "",
       "a key is not plainly a condition; loose: GE_size='+-5': no 64-bit integer; the digits at its start count, none "
       "are 0, too many 2^63-1",
       0, 7},
      {R"(retire --json '{"NE_name":["b"]}')", "",
       "a key is not plainly a condition; loose: NE_name='[\"b\"]': no text; it is compared as it is", 0, 7},
      {R"(retire --json '{"NI_size":["5"]}')", "",
       "a key is not plainly a condition; loose: NI_size='[\"5\"]': an element of another kind than the key's", 0, 7},
      {"retire --document none.json", "", "a key is not plainly a condition; loose: --document: no condition in it", 0,
       7},
      {"retire 'host=H1&LK_name=%25.%25'", "retired 3 files\n", "", 3, 7},
      {"retire 'OR=name%3Da.txt%26kind%3D2'", "retired 1 files\n", "", 4, 7},
      {"purge", "", "no condition: --all is needed to have 4 files purged", 4, 7},
      {"purge 'LT_size=6&kind=1'", "purged 1 files\n", "", 3, 6},
      {"purge --all", "purged 3 files\n", "", 0, 3},
      {"retire --all", "retired 3 files\n", "", 3, 3},
  };
  std::ofstream(home_ / "none.json") << R"({"op":"OR","v":[]})";
  for (auto const& step : steps) {
    SCOPED_TRACE(step.command);
    Outcome const outcome = run(step.command);
    bool const refused = *step.done == '\0';
    EXPECT_EQ(outcome.code, refused ? 2 : 0);
    EXPECT_EQ(outcome.out, step.done);
    EXPECT_EQ(outcome.err, refused ? std::string("catalog: nothing changed, ") + step.refusal + "\n" : "");
    EXPECT_EQ(total("find NN_retired="), step.retired);
    EXPECT_EQ(total("find"), step.total);
  }
}

TEST_P(Catalog, runs_are_listed_compared_and_dropped) {
  fs::remove(home_ / "tree/a.txt");
  fs::remove(home_ / "tree/sub/a2.txt");
  std::ofstream(home_ / "tree/b") << "b";
  std::string const first = column(page("runs"), "id").front();
  ASSERT_EQ(run("index tree --host h2").code, 0);
  Names const runs = column(page("runs"), "id");
  std::string const second = runs[0] == first ? runs[1] : runs[0];
  EXPECT_EQ(run("changes " + first + ' ' + second + " --format csv").out,
            "change,path,kind,size\r\nremoved,DIR/tree/a.txt,file,5\r\nadded,DIR/tree/b,file,1\r\n"
            "removed,DIR/tree/sub/a2.txt,file,3000\r\n");
  EXPECT_EQ(total("changes " + first + ' ' + second), 3);
  EXPECT_EQ(run("drop-run " + first).out, "dropped run " + first + " with 7 files\n");
  EXPECT_EQ(column(page("runs"), "id"), Names{second});
  EXPECT_EQ(total("find host=h2"), 6);
  EXPECT_EQ(total("find"), 6);
  EXPECT_EQ(run("drop-run " + first).code, 1);
}

TEST_P(Catalog, a_run_that_is_written_is_dropped_by_force_and_its_writer_ends) {
  shell("(\"$C\" index /usr --host h2 --store '" + store_ + "' 2>said; echo $? >code) &");
  for (int i = 0; i < 300 && total("find host=h2 --limit 0") == 0; ++i) usleep(100'000);
  Names const ids = column(page("runs"), "id");
  Names const states = column(page("runs"), "state");
  ASSERT_THAT(states, ::testing::UnorderedElementsAre("complete", "running"));
  std::string const id = ids[states[0] == "running" ? 0 : 1];
  EXPECT_EQ(run("drop-run " + id).err,
            "catalog: run " + id + " is being written, or its process died: --force drops it\n");
  EXPECT_EQ(run("drop-run --force " + id).code, 0);
  ASSERT_TRUE(comes("code"));
  EXPECT_EQ(content(home_ / "code"), "1\n");
  EXPECT_THAT(content(home_ / "said"), ::testing::EndsWith("run " + id + " was dropped while it was written\n"));
  EXPECT_EQ(page("runs").at("total").get_int64(), 1);
  EXPECT_EQ(total("find"), 7);
}

TEST_P(Catalog, many_write_and_read_at_once) {
  Outcome const outcome = shell("S='" + store_ + R"('
for i in 1 2 3 4 5 6 7 8; do "$C" index /usr/include/linux --store "$S" --host w$i >/dev/null & p="$p $!"; done
for i in 1 2 3 4 5; do "$C" find LK_name=%.h --store "$S" >/dev/null; "$C" retire host=w$i --all --store "$S" >/dev/null; done
for q in $p; do wait $q; echo $?; done)");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.out, "0\n0\n0\n0\n0\n0\n0\n0\n");
  long long files = 1;
  for (auto const& entry : fs::recursive_directory_iterator("/usr/include/linux")) files += entry.exists() ? 1 : 0;
  EXPECT_EQ(total("find --limit 0"), 7 + 8 * (files - 1));
}

TEST_P(Catalog_File, what_goes_wrong_has_its_exit_code_and_one_line) {
  std::string const store = content(home_ / "store.db");
  auto const write_changed = [&](char const* file, std::size_t offset, char byte) {
    std::string changed = store;
    changed.at(offset) = byte;
    std::ofstream(home_ / file, std::ios::binary) << changed;
  };
  write_changed("newer.db", 63, 5);  // the last byte of user_version in the file's header
  std::ofstream(home_ / "bad.json")
      << R"({"op":"AND","v":[{"op":"OR","v":["f.size>1",{"op":"BR","k":"f.size","v":1}]}]})";
  write_changed("foreign.db", 71, 0);  // and of application_id
  ASSERT_EQ(mkfifo((home_ / "pipe").c_str(), 0600), 0);
  std::string const makes = "; 'catalog index DIR --store STORE' makes a catalogue in a new file or an empty database";
  std::string const refused = "cannot read the URL of the database: ";
  std::string const useless =
      "ignored: *.h, size>100\ncatalog: nothing listed: no part of the request can be used; known keys are name, path, "
      "kind, size, modified, owner, retired, run, complete, directory, host; --lenient lists without it";
  struct {
    char const* arguments;
    int code;
    std::string error;
  } const cases[] = {
      {"frobnicate", 2, "unknown command 'frobnicate'; 'catalog help' lists the commands"},
      {"fnd", 2, "unknown command 'fnd', did you mean 'find'?"},
      {"retier", 2, "unknown command 'retier', did you mean 'retire'?"},
      {"find --colour=red", 2, "find: unknown option '--colour'; 'catalog help find' tells all"},
      {"find --stor x", 2, "find: unknown option '--stor', did you mean '--store'?"},
      {"find name=a b", 2, "find: one argument too many 'b'; 'catalog help find' tells all"},
      {"find name=a MariaDB://u:pass@h/x", 2, "find: one argument too many; 'catalog help find' tells all"},
      {"find '*.h&size>100' --name a", 2, useless},
      {"find --sort f.id", 2,
       "--sort: unknown word 'f.id', allowed: name, kind, size, modified, retired, owner, host, path"},
      {"find --order asc,up", 2, "--order: unknown word 'up', allowed: asc, desc"},
      {"find --order asc,desc", 2, "--order: more orders than sort keys"},
      {"find --kind 5", 2, "--kind: unknown word '5', allowed: file, directory, link, other, 1, 2, 3, 4"},
      {"find --limit -1", 2, "--limit: '-1' is no number from 0 to 9223372036854775807"},
      {"find --min-size 8388608T", 2, "--min-size: '8388608T' is no number from 0 to 9223372036854775807"},
      {"find name=a --json '{}'", 2, "REQUEST excludes --json"},
      {"find --json '{\"size\":\ntrue,}'", 2, "--json: line 2, column 6: the name of a member is missing"},
      {"retire --json '{\"kind\":1,\"OR\":{\"kind\":1,\"kind\":2}}'", 2,
       "--json: line 1, column 32: the object has a member of this name already"},
      {"find --document gone.json", 1, "gone.json: No such file or directory"},
      {"find --document tree", 1, "tree: is a directory"},
      {"find --document - </dev/zero", 2, "--document: -: larger than 16 MiB"},
      {"purge --all >/dev/full", 1, "purged 0 files; the output cannot be written"},
      {"find --store 'MariaDB://u:pass@h/x'", 1, refused + "a password does not belong into it"},
      {"find --store 'mysql:u:pass@h/x'", 1, refused + "it does not begin with mysql:// or mariadb://"},
      {"find --store 'mysql//u:pass@h/x'", 1,
       "--store: neither a file nor a URL that begins with mysql:// or mariadb://"},
      {"find --store 'u%3Apass@h/x'", 1, "--store: neither a file nor a URL that begins with mysql:// or mariadb://"},
      {"find --document tree/a.txt", 2, "tree/a.txt: line 1, column 1: a value is missing or misspelt"},
      {"find --document bad.json", 2, "--document: the document, member 1, member 2: an 'op' that compares nothing"},
      {"index 'gone\n'", 1, "gone\\n: No such file or directory"},
      {"index tree --host 'h 1'", 2, "--host: 'h 1' is not 1 to 255 ASCII letters, digits, '.', '-' and '_'"},
      {"index store.db", 1, "store.db: not a directory"},
      {"find --store gone.db", 1, "gone.db: no such store file" + makes},
      {"drop-run x --store gone.db", 1, "gone.db: no such store file" + makes},
      {"find --store tree/a.txt", 1,
       "cannot open database 'tree/a.txt': file is not a database (SQLite error 26)" + makes},
      {"index tree --store foreign.db", 1, "foreign.db is no catalogue" + makes},
      {"runs --store newer.db", 1, "newer.db is a catalogue of schema version 5, this program reads version 4"},
      {"index tree --store :memory:", 1, ":memory:: a catalogue in memory would be lost at once, name a file"},
      {"find --store pipe", 1, "cannot open database 'pipe': not a regular file"},
      {"index tree --store pipe", 1, "cannot open database 'pipe': not a regular file"},
      {"changes x y", 1, "no run x in store.db"},
      {"drop-run \"' OR ''='\"", 1, "no run ' OR ''=' in store.db"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.arguments);
    Outcome const outcome = run(c.arguments);
    EXPECT_EQ(outcome.code, c.code);
    EXPECT_EQ(outcome.err, "catalog: " + c.error + "\n");
    EXPECT_EQ(outcome.out, "");
  }
  EXPECT_FALSE(fs::exists(home_ / "gone.db"));
  EXPECT_EQ(total("find"), 7);
}

TEST_P(Catalog, what_cannot_be_read_or_stored_is_left_out_and_the_first_are_named) {
  for (int i = 0; i < 12; ++i) fs::create_directories(home_ / "closed" / std::to_string(i));
  // The superuser without the right to bypass permissions.
  Outcome const unread = shell(R"x(chmod 0 closed/*
[ "$(id -u)" != 0 ] || right='setpriv --bounding-set=-dac_override,-dac_read_search'
$right "$C" index closed --host h2 --store ')x" +
                               store_ + "'; code=$?; chmod 700 closed/*; exit $code");
  EXPECT_EQ(unread.code, 3);
  EXPECT_THAT(unread.err, ::testing::ContainsRegex("^(catalog: DIR/closed/[0-9]+: Permission denied\n){10}"
                                                   "catalog: warning: 12 left out; 2 of them not named\n$"));
  EXPECT_EQ(total("find host=h2"), 12);
  database()->run(GetParam() == Database::sqlite ? "CREATE TRIGGER no_link BEFORE INSERT ON files WHEN new.name='link'"
                                                   " BEGIN SELECT RAISE(ABORT,'no link'); END"
                                                 : "CREATE TRIGGER no_link BEFORE INSERT ON files FOR EACH ROW"
                                                   " SET NEW.owner=IF(NEW.name='link',REPEAT('x',5000),NEW.owner)");
  Outcome const unstored = run("index tree --host h3");
  EXPECT_EQ(unstored.code, 3);
  EXPECT_THAT(unstored.err, ::testing::ContainsRegex("^catalog: DIR/tree/link: not stored: .*error [0-9]+\\)\n"
                                                     "catalog: warning: 1 left out\n$"));
  EXPECT_EQ(total("find host=h3"), 6);
  EXPECT_THAT(run("runs --format csv").out,
              ::testing::AllOf(::testing::HasSubstr(",h2,complete,12,12,"), ::testing::HasSubstr(",h3,complete,6,1,")));
}

TEST_P(Catalog, an_older_catalogue_is_brought_forward_and_takes_trees_of_any_depth) {
  bool const lite = GetParam() == Database::sqlite;
  for (char const* const statement :
       {"ALTER TABLE runs DROP COLUMN left_out", lite ? "PRAGMA user_version=2" : "UPDATE catalog_schema SET version=2",
        lite ? "DROP INDEX files_by_name" : "ALTER TABLE runs MODIFY directory BLOB NOT NULL",
        lite ? "DROP INDEX files_by_retired"
             : "ALTER TABLE files MODIFY path BLOB NOT NULL, MODIFY name VARBINARY(255) NOT NULL,"
               " MODIFY owner VARBINARY(255) NOT NULL, DROP INDEX files_by_run, DROP INDEX files_by_name,"
               " DROP INDEX files_by_retired, ADD INDEX files_by_run (run_uuid,path(255))"}) {
    database()->run(statement);
  }
  EXPECT_THAT(run("runs").err,
              ::testing::EndsWith(" is a catalogue of schema version 2, this program reads version 4: 'catalog index' "
                                  "and the commands that change it bring it forward\n"));
  make_deep();
  Outcome const outcome = shell("ulimit -n 40; \"$C\" index deep --store '" + store_ + "'");
  EXPECT_EQ(outcome.err, "");
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(total("find --limit 0"), 7 + 2999 + 2699);
  Names const deepest = column(page("find --sort path --order desc --offset 7 --limit 50"), "path");
  EXPECT_EQ(deepest.front().size(), 8 + 2699 * 2 + 300 * 256);
  EXPECT_TRUE(std::is_sorted(deepest.rbegin(), deepest.rend()));
  EXPECT_THAT(run("runs --format csv").out, ::testing::HasSubstr(",complete,5698,0,"));
  EXPECT_EQ(page("find --limit 1500").at("rows").get_array().size(), 1500U);
  Select_SQL indexes;
  indexes.from(lite ? "pragma_index_list('files')" : "information_schema.statistics");
  indexes.where(lite ? "name LIKE 'files%'" : "table_schema=DATABASE() AND index_name LIKE 'files_by%'", false);
  indexes.select(lite ? "name" : "index_name").order_by("1");
  std::string names;
  for (auto const& row : database()->rows(indexes)) names += row[0].val().get_str() + ' ';
  EXPECT_EQ(names, "files_by_name files_by_retired files_by_run ");
  Select_SQL falls;  // no id is less than the one before
  falls.from("files a JOIN files b ON b.rowid=a.rowid+1 AND b.run_uuid=a.run_uuid AND b.id<=a.id").count("*");
  EXPECT_EQ(lite ? database()->count(falls) : 0, 0U);
}

TEST_P(Catalog_File, an_interrupted_index_keeps_what_it_has_read) {
  {
    SQLite_Store holder((home_ / "store.db").string());
    Transaction const transaction(holder);  // the program waits for it and gets a signal
    shell(R"(("$C" index tree --store store.db 2>said & p=$!
for i in $(seq 1000); do grep -q 'SigCgt:.*[2367abef]$' /proc/$p/status && break; sleep 0.01; done
kill -INT $p; echo >sent; wait $p; echo $? >code) >/dev/null &)");
    ASSERT_TRUE(comes("sent"));
  }
  ASSERT_TRUE(comes("code"));
  EXPECT_EQ(content(home_ / "code"), "1\n");
  EXPECT_THAT(content(home_ / "said"), ::testing::StartsWith("catalog: interrupted: 1 files kept in run "));
  EXPECT_THAT(column(page("runs"), "state"), ::testing::UnorderedElementsAre("complete", "interrupted"));
  EXPECT_EQ(total("find"), 8);
}

TEST_P(Catalog_File, stays_as_it_was_on_a_full_disk) {
  // A separate file system if allowed, otherwise files that cannot grow.
  Outcome const outcome = shell(R"(mkdir full; cat >fill.sh <<'END'
"$C" index tree --store full/s.db >&2
"$C" index /usr --store full/s.db
echo "exit $?"
"$C" runs --store full/s.db --format csv | cut -d, -f3,4
END
export C
if unshare -rm true; then
  unshare -rm bash -c 'mount -t tmpfs -o size=1m none full && . ./fill.sh'
else
  (ulimit -f 1000; trap '' XFSZ; . ./fill.sh)
fi)");
  EXPECT_EQ(outcome.out, "exit 1\nstate,files\ncomplete,7\ninterrupted,0\n");
  EXPECT_THAT(outcome.err,
              ::testing::ContainsRegex("\ncatalog: full/s.db: [a-z/O ]* \\(SQLite error (13|778)\\); [^\n(]*\n"));
}

TEST_P(Catalog_Server, keeps_what_is_committed_when_a_connection_breaks) {
  shell("(\"$C\" index /usr --store '" + store_ + "' 2>broken; echo $? >code) &");
  for (int i = 0; i < 300 && total("find --limit 0") == 7; ++i) usleep(100'000);
  MySQL_Store administrator(mariadb_url());
  Select_SQL connections;
  connections.from("information_schema.processlist").select("id").and_filter()->add_kv_eq_item("db", own_database());
  for (auto const& row : administrator.rows(connections)) {
    try {
      administrator.run("KILL CONNECTION " + std::to_string(row[0].val().get_int64()));
    } catch (backup::Store_Error const&) {
      // that of a 'find', which has ended by itself
    }
  }
  ASSERT_TRUE(comes("code"));
  EXPECT_EQ(content(home_ / "code"), "1\n");
  EXPECT_THAT(content(home_ / "broken"),
              ::testing::ContainsRegex("(^|\n)catalog: .*([cC]onnection|gone away).* \\(MySQL error [0-9]+\\)"));
  EXPECT_EQ(total("find --limit 0") % 10000, 7);
  EXPECT_THAT(column(page("runs"), "state"), ::testing::UnorderedElementsAre("complete", "interrupted"));
}

TEST_P(Catalog_Server, keeps_what_is_committed_when_the_server_is_killed_and_leaves_out_what_it_cannot_be_sent) {
  make_deep();
  Outcome const outcome = shell(R"(export C; cat >crash.sh <<'END'
url=${BACKUP_TEST_MYSQL/\/\?//c?}
socket=${url#*socket=}
pid=$(cat "${socket%socket}pid")
mapfile -d '' server <"/proc/$pid/cmdline"
ask() { mariadb -uroot --socket="$socket" -e "$1"; }
ask 'CREATE DATABASE c; CREATE DATABASE deep; SET GLOBAL max_allowed_packet=16384'
"$C" index deep --store "${url/\/c?//deep?}" >&2
echo "exit $?"
"$C" runs --store "${url/\/c?//deep?}" --format csv | awk -F, '{ print $3, $4 + $5 }'
ask 'SET GLOBAL max_allowed_packet=67108864'
"$C" index /usr --store "$url" >&2 &
total() { "$C" find --limit 0 --store "$url" 2>&- | sed -n 's/^0 of //p' | tr -d ,; }
wait_for() {
  for ((i = 0; i < 300; ++i)); do
    found=$(total)
    [ -z "$found" ] || [ "$found" -lt "$1" ] || return 0
    sleep 0.1
  done
  exit 1
}
wait_for 1
seen=$found
kill -9 "$pid"
wait $!
echo "exit $?"
"${server[@]}" >again 2>&1 &
trap 'kill $!; wait' EXIT
wait_for "$seen"
echo "$((found % 10000)) more than whole batches"
"$C" runs --store "$url" --format csv | cut -d, -f3
END
)" WITH_MARIADB " server bash crash.sh");
  EXPECT_EQ(outcome.out, "exit 3\nstate 0\ncomplete 5698\nexit 1\n0 more than whole batches\nstate\nrunning\n");
  EXPECT_THAT(outcome.err,
              ::testing::ContainsRegex("(^|\n)catalog: .*(Lost connection|gone away).* \\(MySQL error 20[0-9]+\\)"));
}

// Of 200 nested directories the outer ones are already closed when some are moved away.
TEST(Tree_Walk, finds_back_out_of_moved_directories_and_reports_what_is_lost) {
  for (bool const is_lost : {false, true}) {
    std::string home = (fs::canonical(fs::temp_directory_path()) / "walk-XXXXXX").string();
    ASSERT_NE(mkdtemp(home.data()), nullptr);
    fs::create_directories(home + "/top");
    std::vector<fs::path> levels{home + "/top"};
    Names files;
    for (int level = 0; level < 200; ++level) {
      for (int i = 0; i < (level == 120 ? 1000 : 1); ++i) {
        std::string const name = std::to_string(level) + '.' + std::to_string(i);
        std::ofstream(levels.back() / name) << "";
        if (level != 120 || !is_lost) files.push_back(name);
      }
      levels.push_back(levels.back() / "d");
      fs::create_directory(levels.back());
    }
    Names found;
    Names reports;
    Tree_Walk walk(levels.front().string(),
                   [&](std::string const& path, std::string const& why) { reports.push_back(path + ": " + why); });
    for (File file; walk.next(file);) {
      bool const is_at_120 = is_lost && file.name.compare(0, 4, "120.") == 0;
      if (file.kind == File_Kind::file && !is_at_120) found.push_back(file.name);
      if (file.path != levels.back()) continue;
      fs::rename(levels[121], home + "/a");  // its ".." leads elsewhere; its parent's path still exists
      if (is_lost) fs::rename(levels[120], home + "/b");
    }
    std::sort(files.begin(), files.end());
    std::sort(found.begin(), found.end());
    EXPECT_EQ(found, files);
    EXPECT_EQ(reports, is_lost ? Names{levels[120].string() + "/: No such file or directory"} : Names{});
    fs::remove_all(home);
  }
}

}  // namespace
