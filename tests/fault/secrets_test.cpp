// Once all that held a secret is gone, no copy of it is left in the writable memory of the process: not in released
// memory, not on the stack. Run with LD_BIND_NOW=1, as ctest does: the dynamic linker saves registers on the stack when
// it looks a function up at its first call, with whatever they hold.
#include <fcntl.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <random>

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

// Random digits from 1 to 9, hexadecimal ones too, kept under a mask: what looks for a copy must not find itself.
class Secret {
public:
  explicit Secret(std::size_t size) : masked_(size) {
    std::random_device random;
    for (unsigned char& digit : masked_) digit = static_cast<unsigned char>('1' + random() % 9) ^ mask_;
  }

  Secure_String clear() const {
    Secure_String clear(masked_.size(), '\0');
    for (std::size_t i = 0; i < clear.size(); ++i) clear[i] = static_cast<char>(digit(i));
    return clear;
  }

  // The digits, and the bytes that they stand for.
  long copies_in(unsigned char const* memory, std::size_t size) const {
    auto const byte = [this](std::size_t i) { return (digit(2 * i) & 0xFU) << 4U | (digit(2 * i + 1) & 0xFU); };
    return count(memory, size, masked_.size(), [this](std::size_t i) { return digit(i); }) +
           count(memory, size, masked_.size() / 2, byte);
  }

private:
  unsigned digit(std::size_t i) const { return masked_[i] ^ mask_; }

  template <class At>
  static long count(unsigned char const* memory, std::size_t size, std::size_t length, At at) {
    long found = 0;
    unsigned char const* const end = memory + size;
    auto const next = [&](unsigned char const* from) {
      return static_cast<unsigned char const*>(
          std::memchr(from, static_cast<int>(at(0)), static_cast<std::size_t>(end - from)));
    };
    for (auto const* start = next(memory); start != nullptr; start = next(start + 1)) {
      std::size_t i = 1;
      while (i < length && start + i != end && start[i] == at(i)) ++i;
      if (i == length) ++found;
    }
    return found;
  }

  std::vector<unsigned char> masked_;
  inline static unsigned char volatile mask_ = 0xA5;  // volatile lest the compiler take it off
};

// Takes no memory, which would overwrite what is looked for; the buffer is cleared after each piece lest it be found.
long copies_in_memory(Secret const& secret) {
  static char mappings[1U << 20U];
  static unsigned char buffer[1U << 20U];
  constexpr std::size_t overlap = 64;
  int const maps = open("/proc/self/maps", O_RDONLY | O_CLOEXEC);
  int const memory = open("/proc/self/mem", O_RDONLY | O_CLOEXEC);
  char* end = mappings;
  while (ssize_t const got = read(maps, end, static_cast<std::size_t>(std::end(mappings) - end - 1))) end += got;
  *end = '\0';
  long found = 0;
  for (char* line = mappings; *line != '\0'; line = std::strchr(line, '\n') + 1) {
    std::uintptr_t at = std::strtoul(line, &line, 16);
    std::uintptr_t const last = std::strtoul(line + 1, &line, 16);
    if (std::strncmp(line, " rw", 3) != 0 || last - at > 1UL << 30U) continue;  // so large: a sanitizer's own table
    for (; at < last; at += sizeof buffer - overlap) {
      ssize_t const size = pread(memory, buffer, std::min(sizeof buffer, last - at), static_cast<off_t>(at));
      if (size <= 0) break;
      found += secret.copies_in(buffer, static_cast<std::size_t>(size));
      std::memset(buffer, 0, sizeof buffer);
    }
  }
  close(maps);
  close(memory);
  return found;
}

// Goes down in the stack first, so that nothing called later overwrites what is left there.
[[gnu::noinline]] void deep_in_the_stack(std::function<void()> const& action) {
  char volatile room[64 * 1024];
  for (char volatile& c : room) c = 0;  // all of it, or a compiler takes less
  action();
}

struct Scenario {
  char const* name;
  std::function<void(Secure_String const& secret)> use;
};

long copies_left(Scenario const& scenario, std::size_t size) {
  Secret const secret(size);
  deep_in_the_stack([&] {
    Secure_String clear = secret.clear();
    Secure_Wipe_Guard<Secure_String> const wipe(clear);
    deep_in_the_stack([&] { scenario.use(clear); });
  });
  return copies_in_memory(secret);
}

// Inside the string object; a uuid, on the heap.
constexpr std::size_t sizes[] = {12, 32};

Secure_Byte_String const key(16, 'k');

template <class Statement>
void render_all(Statement const& statement) {
  Statement const copy(statement);
  std::string text;
  Bindings bindings;
  copy.get_sql(SQL::DB_MYSQL, text, bindings);
  std::vector<Binding_Value> values;
  copy.get_sql(SQL::DB_SQLITE, text, values);
  copy.get_count_sql(SQL::DB_SQLITE, text, values);
}

void use_store(std::function<void(SQLite_Store&)> const& use) {
  SQLite_Store store(":memory:");
  store.run("CREATE TABLE t(a)");
  store.run("INSERT INTO t VALUES ('x')");
  use(store);
}

}  // namespace

TEST(Secrets, leave_no_copy_in_memory) {
  Scenario const scenarios[] = {
      {"secure strings and bytes",
       [](Secure_String const& secret) {
         Secure_String text(secret);
         text.append(1000, 'x').append(secret);
         secure_wipe(text);
         EXPECT_TRUE(text.empty());
         Secure_Byte_String bytes(secret.begin(), secret.end());
         Secure_Wipe_Guard<Secure_Byte_String> const wipe(bytes);
         Binding_Value const value(bytes);
       }},
      {"hexadecimal strings and uuids",
       [](Secure_String const& secret) {
         Secure_Hex_String const from_text(secret.data(), secret.size());
         Secure_Byte_String bytes;
         Secure_Wipe_Guard<Secure_Byte_String> const wipe(bytes);
         from_text.get_bytes(bytes);
         delete new Secure_Hex_String(bytes.data(), bytes.size());
         uuid_string_to_binary_secure(secret);
       }},
      {"AES",
       [](Secure_String const& secret) {
         AES_Encoder const encoder(secret.data(), secret.size(), key.data(), key.size(), false, nullptr, 0);
         std::vector<unsigned char> message(encoder.buffer(), encoder.buffer() + encoder.length());
         EXPECT_NE(AES_Decoder(message.data(), message.size(), key.data(), key.size(), nullptr).buffer(), nullptr);
         message.back() ^= 1;  // refused, once it is decoded
         EXPECT_EQ(AES_Decoder(message.data(), message.size(), key.data(), key.size(), nullptr).buffer(), nullptr);
         Secure_Byte_String own_key(secret.begin(), secret.end());
         Secure_Wipe_Guard<Secure_Byte_String> const wipe(own_key);
         own_key.resize(32);
         Binding_Value out;
         EXPECT_TRUE(Binding_Value_AES_Converter(own_key, "text").convert("x", out));
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
      {"converters",
       [](Secure_String const& secret) {
         Binding_Value out;
         Binding_Value_AES_Converter const aes(key, nullptr);
         EXPECT_TRUE(aes.convert(secret, out) && aes.convert(Array{secret}, out));
         bool const is_uuid = secret.size() == 32;
         EXPECT_EQ(Binding_Value_UUID_Converter().convert(secret, out), is_uuid);
         EXPECT_EQ(Binding_Value_Hex_Converter().convert(secret, out), is_uuid);
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
         update.or_filter()->add_kv_item(Item_SQL::OP_GT, "a", secret, 0);
         render_all(update);
       }},
      {"a store that compares with it",
       [](Secure_String const& secret) {
         use_store([&](SQLite_Store& store) {
           Select_SQL select("t", nullptr);
           select.and_filter()->add_kv_eq_item("a", secret);
           select.and_filter()->add_kv_eq_item("a", Object{{"b", secret}});
           EXPECT_TRUE(store.rows(select).empty() && store.rows(select, Store::BY_POSITION).empty());
           EXPECT_THROW(store.run(select.table("none", nullptr)), Store_Error);
         });
       }},
  };
  ASSERT_NE(std::getenv("LD_BIND_NOW"), nullptr) << "run it by ctest, or with LD_BIND_NOW=1";
  for (std::size_t const size : sizes) {
    for (Scenario const& scenario : scenarios) {
      SCOPED_TRACE(::testing::Message() << scenario.name << ", " << size << " characters");
      EXPECT_EQ(copies_left(scenario, size), 0);
    }
  }
}

// The documented ways out. The first two show that the search sees what is left.
TEST(Secrets, are_found_where_they_are_given_away) {
  Scenario const scenarios[] = {
      {"released memory", [](Secure_String const& secret) { delete new std::string(secret.c_str()); }},
      {"the stack",
       [](Secure_String const& secret) {
         char volatile text[64];
         for (std::size_t i = 0; i < secret.size(); ++i) text[i] = secret[i];
         static_cast<void>(text[0]);
       }},
      {"the text for diagnostics",
       [](Secure_String const& secret) {
         std::string text;
         Binding_Value(secret).to_str(text);
       }},
      {"a comparison in lower case",
       [](Secure_String const& secret) {
         Select_SQL select("t", nullptr);
         select.and_filter()->add_kv_item(Item_SQL::OP_EQ, "a", secret, 1);
         render_all(select);
       }},
      {"bind_hex", [](Secure_String const& secret) { SQL("x", SQL::TYPE_RAW, true).bind_hex(":a", secret); }},
      {"an object in an IN list",
       [](Secure_String const& secret) {
         Select_SQL select("t", nullptr);
         select.and_filter()->add_in_item("a", {Object{{"b", secret}}}, 0);
         render_all(select);
       }},
      {"a store that stores it",
       [](Secure_String const& secret) {
         use_store([&](SQLite_Store& store) { store.run(Insert_SQL("t").value("a", secret)); });
       }},
  };
  for (std::size_t const size : sizes) {
    for (Scenario const& scenario : scenarios) {
      SCOPED_TRACE(::testing::Message() << scenario.name << ", " << size << " characters");
      EXPECT_GT(copies_left(scenario, size), 0);
    }
  }
}
