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
#include <iterator>
#include <string>
#include <vector>

#include "json_spirit/json_spirit.h"

namespace fs = std::filesystem;

namespace {

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
class Catalog : public ::testing::Test {
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
    ASSERT_EQ(run("index tree --host h1").code, 0);
  }
  void TearDown() override { fs::remove_all(home_); }

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
    return shell("\"$C\" " + arguments + (names_store ? "" : " --store store.db"));
  }
  json_spirit::Object page(std::string const& arguments) {
    json_spirit::Value value;
    json_spirit::read_string_or_throw(run(arguments + " --format json").out, value);
    return value.get_obj();
  }
  long long total(std::string const& arguments) { return page(arguments).at("total").get_int64(); }

  fs::path home_;
  std::string const user_ = getpwuid(geteuid())->pw_name;
};

TEST_F(Catalog, find_and_stats_print_aligned_tables_without_control_characters) {
  std::string const text = R"(NAME       KIND        SIZE  MODIFIED             #  HOST  PATH
a.txt      file           5  2020-01-02 03:04:05  @  h1    DIR/tree/a.txt
bad,\xff   file           0  2020-01-02 03:04:05  @  h1    DIR/tree/bad,\xff
new\nline  file           1  2020-01-02 03:04:05  @  h1    DIR/tree/new\nline
a2.txt     file       3,000  2020-01-02 03:04:05  @  h1    DIR/tree/sub/a2.txt
sub        directory      0  2020-01-02 03:04:05  @  h1    DIR/tree/sub
2-6 of 7
)";
  std::size_t const width = std::max<std::size_t>(user_.size(), 5);
  std::string const title = "OWNER" + std::string(width - 5, ' ');
  std::string const owner = user_ + std::string(width - user_.size(), ' ');
  EXPECT_EQ(run("find --sort kind,path --offset 1 --limit 5").out, replaced(replaced(text, "@", owner), "#", title));
  EXPECT_EQ(run("stats").out, R"(HOST  KIND       FILES  BYTES
h1    file           5  5,006
h1    directory      1      0
h1    link           1      0
1-3 of 3
)");
}

TEST_F(Catalog, find_filters_sorts_and_pages) {
  std::string const bad = "bad,\xEF\xBF\xBD";  // in JSON a byte that is no UTF-8 is replaced
  std::string const b = "\"b\", 100%.TXT";
  struct {
    char const* arguments;
    Names names;
    long long total;
  } const cases[] = {
      {"", {b, "a.txt", bad, "link", "new\nline", "sub", "a2.txt"}, 7},
      {"--name tXt --sort size", {"a.txt", b, "a2.txt"}, 3},
      {"--name 0%.", {b}, 1},
      {"--name _", {}, 0},
      {"--name '\"b\"'", {b}, 1},
      {"--name ',\xFF'", {bad}, 1},
      {"--min-size 2k", {"a2.txt"}, 1},
      {"--kind link", {"link"}, 1},
      {"--kind 2", {"sub"}, 1},
      {"--kind file --name a --min-size 5 --host h1", {"a.txt", "a2.txt"}, 2},
      {"--host h", {}, 0},
      {"--sort size --order desc --limit 2", {"a2.txt", b}, 7},
      {"--sort kind,name --order desc,asc --limit 3", {"link", "sub", b}, 7},
      {"--limit 3 --offset 6", {"a2.txt"}, 7},
      {"--offset 7", {}, 7},
      {"--limit 0", {}, 7},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.arguments);
    json_spirit::Object const answer = page(std::string("find ") + c.arguments);
    EXPECT_EQ(column(answer, "name"), c.names);
    EXPECT_EQ(answer.at("total").get_int64(), c.total);
  }
}

TEST_F(Catalog, csv_quotes_what_needs_it_and_keeps_every_byte) {
  std::string const text =
      "name,kind,size,modified,owner,host,path\r\n"
      "\"\"\"b\"\", 100%.TXT\",file,2000,2020-01-02 03:04:05,@,h1,\"DIR/tree/\"\"b\"\", 100%.TXT\"\r\n"
      "a.txt,file,5,2020-01-02 03:04:05,@,h1,DIR/tree/a.txt\r\n"
      "\"bad,\xFF\",file,0,2020-01-02 03:04:05,@,h1,\"DIR/tree/bad,\xFF\"\r\n"
      "\"new\nline\",file,1,2020-01-02 03:04:05,@,h1,\"DIR/tree/new\nline\"\r\n";
  EXPECT_EQ(run("find --kind file --limit 4 --format csv").out, replaced(text, "@", user_));
}

TEST_F(Catalog, explain_prints_both_dialects_named_and_positional) {
  std::string const keys =
      "f.name `name`,f.kind `kind`,f.size `size`,f.modified `modified`,f.owner `owner`,h.name `host`,f.path `path`";
  std::string const from =
      " FROM `files` `f` INNER JOIN `runs` `r` ON r.id=f.run_id INNER JOIN `hosts` `h` ON h.id=r.host_id WHERE ";
  std::string const named = from + "(f.name LIKE :__search_0 ESCAPE '|') AND (`f`.`size`>=:1)";
  std::string const marks = from + "(f.name LIKE ? ESCAPE '|') AND (`f`.`size`>=?)";
  std::string const tail = " ORDER BY f.size DESC,f.path ASC,f.id ASC LIMIT 20 OFFSET 40\n";
  std::string const bindings = "      :1 = 1024\n      :__search_0 = \"%100|%%\"\n";
  std::string const values = "      1 = \"%100|%%\"\n      2 = 1024\n";
  std::string const texts = "  statement, by name\n    SELECT " + keys + named + tail + bindings +
                            "  statement, by position\n    SELECT " + keys + marks + tail + values +
                            "  count query, by name\n    SELECT COUNT(`f`.id)" + named + "\n" + bindings +
                            "  count query, by position\n    SELECT COUNT(`f`.id)" + marks + "\n" + values;
  EXPECT_EQ(run("find --name 100% --min-size 1k --sort size --order desc --offset 40 --explain").out,
            "MySQL\n" + texts + "SQLite\n" + texts);
}

TEST_F(Catalog, what_goes_wrong_has_its_exit_code_and_one_line) {
  std::string const store = content(home_ / "store.db");
  auto const write_changed = [&](char const* file, std::size_t offset, char byte) {
    std::string changed = store;
    changed.at(offset) = byte;
    std::ofstream(home_ / file, std::ios::binary) << changed;
  };
  write_changed("newer.db", 63, 2);    // the last byte of user_version in the file's header
  write_changed("foreign.db", 71, 0);  // and of application_id
  struct {
    char const* arguments;
    int code;
    char const* error;
  } const cases[] = {
      {"", 2, "A subcommand is required"},
      {"find --colour", 2, "The following argument was not expected: --colour"},
      {"find --sort f.id", 2, "--sort: unknown word 'f.id', allowed: name, kind, size, modified, owner, host, path"},
      {"find --order asc,up", 2, "--order: unknown word 'up', allowed: asc, desc"},
      {"find --order asc,desc", 2, "--order: more orders than sort keys"},
      {"find --kind 5", 2, "--kind: unknown word '5', allowed: file, directory, link, other, 1, 2, 3, 4"},
      {"find --limit -1", 2, "--limit: '-1' is no number from 0 to 9223372036854775807"},
      {"find --min-size 8388608T", 2, "--min-size: '8388608T' is no number from 0 to 9223372036854775807"},
      {"stats --format xml", 2, "--format: unknown word 'xml', allowed: table, json, csv"},
      {"index 'gone\n'", 1, "gone\\n: No such file or directory"},
      {"index store.db", 1, "store.db: not a directory"},
      {"find --store gone.db", 1, "gone.db: no such store file"},
      {"drop-run x --store gone.db", 1, "gone.db: no such store file"},
      {"find --store err", 1, "err is no catalogue"},  // an empty file
      {"find --store tree/a.txt", 1, "cannot open database 'tree/a.txt': file is not a database (SQLite error 26)"},
      {"index tree --store foreign.db", 1, "foreign.db is no catalogue"},
      {"runs --store newer.db", 1, "newer.db is a catalogue of schema version 2, this program reads version 1"},
      {"drop-run \"' OR ''='\"", 1, "no run ' OR ''=' in store.db"},
  };
  for (auto const& c : cases) {
    SCOPED_TRACE(c.arguments);
    Outcome const outcome = run(c.arguments);
    EXPECT_EQ(outcome.code, c.code);
    EXPECT_EQ(outcome.err, std::string("catalog: ") + c.error + "\n");
    EXPECT_EQ(outcome.out, "");
  }
  EXPECT_FALSE(fs::exists(home_ / "gone.db"));
  EXPECT_EQ(total("find"), 7);
}

TEST_F(Catalog, drop_run_deletes_that_run_and_its_files_only) {
  ASSERT_EQ(run("index tree/sub --host h2").code, 0);
  EXPECT_EQ(column(page("runs"), "directory"), (Names{"DIR/tree", "DIR/tree/sub"}));
  std::string const first = column(page("runs"), "id").front();
  EXPECT_EQ(run("drop-run " + first).out, "dropped run " + first + " with 7 files\n");
  EXPECT_EQ(column(page("runs"), "directory"), Names{"DIR/tree/sub"});
  EXPECT_EQ(column(page("find"), "host"), Names{"h2"});
  EXPECT_EQ(run("drop-run " + first).code, 1);
}

TEST_F(Catalog, index_names_the_first_unreadable_directories_and_counts_the_rest) {
  // Deeper than the walk goes: unreadable also to the superuser, whom permissions do not stop.
  fs::path deep = home_ / "deep";
  for (int level = 1; level < 500; ++level) deep /= "d";
  for (int i = 0; i < 12; ++i) fs::create_directories(deep / std::to_string(i) / "never seen");
  Outcome const outcome = run("index deep");
  EXPECT_EQ(outcome.code, 0);
  EXPECT_EQ(std::count(outcome.err.begin(), outcome.err.end(), '\n'), 11);
  EXPECT_THAT(outcome.err, ::testing::StartsWith("catalog: DIR/deep/d/d"));
  EXPECT_THAT(outcome.err, ::testing::HasSubstr(": Too many open files\ncatalog: warning: 12 unreadable, left out; "
                                                "2 of them not named\n"));
  EXPECT_EQ(total("find"), 7 + 499 + 12);
}

TEST_F(Catalog, index_leaves_out_what_permissions_hide) {
  if (geteuid() == 0) GTEST_SKIP() << "permissions do not stop the superuser";
  EXPECT_EQ(shell("chmod 0 tree/sub; \"$C\" index tree --store store.db; chmod 700 tree/sub").err,
            "catalog: DIR/tree/sub: Permission denied\ncatalog: warning: 1 unreadable, left out\n");
  EXPECT_EQ(total("find"), 7 + 6);
}

TEST_F(Catalog, an_interrupted_index_keeps_whole_batches_and_says_so) {
  Outcome const outcome = shell(R"("$C" index /usr --store usr.db &
for i in $(seq 3000); do
  "$C" find --store usr.db --limit 0 2>&- | grep -q '^0 of [1-9]' && break
  sleep 0.01
done
kill -INT $!
wait $!)");
  if (outcome.code == 0) {
    ASSERT_EQ(run("index /usr --store whole.db").code, 0);
    ASSERT_EQ(total("find --limit 0 --store usr.db"), total("find --limit 0 --store whole.db"));
    GTEST_SKIP() << "/usr is too small: it was indexed before the signal came";
  }
  EXPECT_EQ(outcome.code, 1);
  json_spirit::Object const runs = page("runs --store usr.db");
  EXPECT_EQ(column(runs, "state"), Names{"interrupted"});
  long long const files = runs.at("rows").get_array().front().get_obj().at("files").get_int64();
  EXPECT_GT(files, 0);
  EXPECT_EQ(files % 20000, 0);
  EXPECT_EQ(total("find --limit 0 --store usr.db"), files);
  EXPECT_THAT(replaced(outcome.err, ",", ""),
              ::testing::EndsWith("interrupted: " + std::to_string(files) + " files kept in run " +
                                  column(runs, "id").front() + "\n"));
}

}  // namespace
