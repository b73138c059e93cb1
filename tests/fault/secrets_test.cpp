// When everything that held a secret is gone, the writable memory of the process holds no copy of it, neither in
// released memory nor on the stack. This program is linked with -z now: otherwise the dynamic linker saves registers,
// with what they hold, on the stack when a function is called for the first time.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>
#include <string_view>

#include "backup/runtime/aes_encoder.h"
#include "backup/runtime/hex_string.h"
#include "backup/runtime/uuid.h"
#include "backup/store/sqlite_store.h"
#include "backup/utils/sql/insert_sql.h"
#include "backup/utils/sql/select_sql.h"
#include "backup/utils/sql/update_sql.h"

namespace {

using json_spirit::Array;
using json_spirit::Object;
using json_spirit::Value;

// The tests look for these: random digits from 1 to 9, also as hexadecimal digits, and their bytes.
struct Secret {
  char digits[32];
  char bytes[16];
} known;

void renew_known() {
  std::random_device random;
  for (char& digit : known.digits) digit = static_cast<char>('1' + random() % 9);
  char const* digit = known.digits;
  for (char& byte : known.bytes) {
    byte = static_cast<char>(16 * *digit++);
    byte = static_cast<char>(byte + *digit++ - '0');
  }
}

// Counts the copies of the secret without the secret itself. Takes no memory, which would overwrite them. Clears the
// buffer after each piece, so as not to find it.
long copies_in_memory(std::size_t length) {
  static char mappings[1U << 20U];
  static char buffer[1U << 20U];
  int const maps = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
  int const memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
  char* end = mappings;
  while (ssize_t const got = read(maps, end, static_cast<std::size_t>(std::end(mappings) - end - 1))) end += got;
  *end = '\0';
  long found = 0;
  for (char* line = mappings; *line != '\0'; line = std::strchr(line, '\n') + 1) {
    std::uintptr_t at = std::strtoul(line, &line, 16);
    std::uintptr_t const last = std::strtoul(line + 1, &line, 16);
    if (std::strncmp(line, " rw", 3) != 0 || last - at > 1UL << 30U) continue;  // this large: a sanitizer's table
    for (; at < last; at += sizeof buffer - sizeof known) {
      ssize_t const size = pread(memory, buffer, std::min(sizeof buffer, last - at), static_cast<off_t>(at));
      if (size <= 0) break;
      std::string_view const piece(buffer, static_cast<std::size_t>(size));
      for (std::string_view const wanted : {std::string_view(known.digits, length), {known.bytes, length / 2}}) {
        for (std::size_t i = 0; (i = piece.find(wanted, i)) != std::string_view::npos; ++i) {
          if (at + i != reinterpret_cast<std::uintptr_t>(wanted.data())) ++found;
        }
      }
      std::memset(buffer, 0, sizeof buffer);
    }
  }
  close(maps);
  close(memory);
  return found;
}

// Runs `action` deep in the stack, so that no later call overwrites what is left there.
[[gnu::noinline]] void deep_in_the_stack(std::function<void()> const& action) {
  char volatile room[64 * 1024];
  for (char volatile& c : room) c = 0;  // all of it, or a compiler makes it smaller
  action();
}

struct Scenario {
  char const* name;
  std::function<void(Secure_String const& secret)> use;
  bool leaves_copies = false;
};

long copies_left(Scenario const& scenario, std::size_t size) {
  renew_known();
  deep_in_the_stack([&] {
    Secure_String clear(known.digits, known.digits + size);
    backup::Secure_Wipe_Guard<Secure_String> const wipe(clear);
    deep_in_the_stack([&] { scenario.use(clear); });
  });
  return copies_in_memory(size);
}

Secure_Byte_String const key(16, 'k');

template <class Statement>
void render_all(Statement const& statement) {
  Statement const copy(statement);
  std::string text;
  Bindings bindings;
  copy.get_sql(SQL::DB_MYSQL, text, bindings);
  std::vector<Binding_Value> values;
  copy.get_count_sql(SQL::DB_SQLITE, text, values);
}

}  // namespace

TEST(Secrets, leave_no_copy_in_memory) {
  Scenario const scenarios[] = {
      // The first two show that a copy is found.
      {"released memory", [](Secure_String const& secret) { delete new std::string(secret.c_str()); }, true},
      {"the stack",
       [](Secure_String const& secret) {
         [[maybe_unused]] char volatile text[32];
         for (std::size_t i = 0; i < secret.size(); ++i) text[i] = secret[i];
       },
       true},
      {"strings, bytes, hexadecimal strings, uuids",
       [](Secure_String const& secret) {
         Secure_String text(secret);
         text.append(1000, 'x').append(secret);
         backup::secure_wipe(text);
         EXPECT_TRUE(text.empty());
         Secure_Byte_String bytes(secret.begin(), secret.end());
         backup::Secure_Wipe_Guard<Secure_Byte_String> const wipe(bytes);
         Binding_Value const value(bytes);
         Secure_Hex_String const from_text(secret.data(), secret.size());
         from_text.get_bytes(bytes);
         delete new Secure_Hex_String(bytes.data(), bytes.size());
         uuid_string_to_binary_secure(secret);
       }},
      {"AES and converters",
       [](Secure_String const& secret) {
         AES_Encoder const encoder(secret.data(), secret.size(), key.data(), key.size(), false, nullptr, 0);
         std::vector<unsigned char> message(encoder.buffer(), encoder.buffer() + encoder.length());
         EXPECT_NE(backup::AES_Decoder(message.data(), message.size(), key.data(), key.size(), nullptr).buffer(),
                   nullptr);
         message.back() ^= 1;  // decoded, then refused
         EXPECT_EQ(backup::AES_Decoder(message.data(), message.size(), key.data(), key.size(), nullptr).buffer(),
                   nullptr);
         Secure_Byte_String own_key(secret.begin(), secret.end());
         backup::Secure_Wipe_Guard<Secure_Byte_String> const wipe(own_key);
         own_key.resize(32);
         Binding_Value out;
         EXPECT_TRUE(Binding_Value_AES_Converter(own_key, "text").convert("x", out));
         Binding_Value_AES_Converter const aes(key, nullptr);
         EXPECT_TRUE(aes.convert(secret, out) && aes.convert(Array{secret}, out));
         bool const is_uuid = secret.size() == 32;
         EXPECT_EQ(Binding_Value_UUID_Converter().convert(secret, out), is_uuid);
         EXPECT_EQ(Binding_Value_Hex_Converter().convert(secret, out), is_uuid);
       }},
      {"JSON values",
       [](Secure_String const& secret) {
         std::vector<Value> values;
         for (int i = 0; i < 10; ++i) values.emplace_back(secret);  // moved as the vector grows
         values[0] = 1;
         values[1] = values[2];
         values[3] = std::move(values[4]);
         Value tree = Object{{"a", Array{secret, values}}};
         Value const copy(tree);
         EXPECT_TRUE(copy == tree);
         tree = copy.get_obj().begin()->second.get_array()[0];
         EXPECT_GT(json_spirit::JSON_Dump(copy, false).size() + json_spirit::JSON_Dump(copy, true).size(), 100U);
       }},
      {"SELECT",
       [](Secure_String const& secret) {
         Select_SQL select("t", nullptr);
         select.bind(":a", secret).bind(":a", 1).bind(":b", secret).bind_uuid(":c", secret);
         Filter_SQL& filter = *select.and_filter();
         filter.add_kv_eq_item("a", secret)->value(Binding_Value(secret));
         filter.add_val_sql_item(Item_SQL::OP_EQ, secret)->sql("SELECT 1", true);
         filter.add_or_filter()->add_sql_ex("b=:d", true)->bind(":d", secret);
         render_all(select);
         select.clear();
       }},
      {"INSERT and UPDATE",
       [](Secure_String const& secret) {
         Binding_Value_AES_Converter const aes(key, nullptr);
         Object const row{{"f", secret}};
         Insert_SQL insert("t");
         insert.value("a", secret).value("a", 1).value("b", secret).value("c", secret, &aes).new_entry();
         insert.value_uuid("d", secret).value_hex("e", secret).value_uuid("f", row, "f").value_hex("g", row, "f");
         render_all(insert);
         Update_SQL update("t");
         update.set("a", secret).set("a", 1).set("b", row, "f").set_uuid("c", secret);
         update.or_filter()->add_kv_item(Item_SQL::OP_GT, "a", secret, Filter_SQL::no_flags);
         render_all(update);
       }},
      {"a store that compares with it",
       [](Secure_String const& secret) {
         backup::SQLite_Store store(":memory:");
         store.run("CREATE TABLE t AS SELECT 'x' a");
         Select_SQL select("t", nullptr);
         select.and_filter()->add_kv_eq_item("a", secret);
         select.and_filter()->add_kv_eq_item("a", Object{{"b", secret}});
         EXPECT_TRUE(store.rows(select).empty() && store.rows(select, backup::Store::BY_POSITION).empty());
         EXPECT_THROW(store.run(select.table("none", nullptr)), backup::Store_Error);
       }},
  };
  for (std::size_t const size : {12U, 32U}) {  // inside the string object; on the heap, a uuid
    for (Scenario const& scenario : scenarios) {
      SCOPED_TRACE(::testing::Message() << scenario.name << ", " << size << " characters");
      EXPECT_EQ(copies_left(scenario, size) > 0, scenario.leaves_copies);
    }
  }
}
