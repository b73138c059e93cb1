#include "file.h"

#include "backup/utils/sql/key2_value.h"

namespace {

Key2_Value_T<File_Kind> const kinds[] = {{"file", 4, File_Kind::file},
                                         {"directory", 9, File_Kind::directory},
                                         {"link", 4, File_Kind::link},
                                         {"other", 5, File_Kind::other},
                                         {nullptr, 0, File_Kind::none}};

}  // namespace

char const* kind_word(long long number) {
  Key2_Value_T<File_Kind> const* entry = kinds;
  while (entry->key != nullptr && static_cast<long long>(entry->value) != number) ++entry;
  return entry->key;
}

File_Kind kind_from_text(std::string const& text) {
  for (auto const* entry = kinds; entry->key != nullptr; ++entry) {
    if (text == std::to_string(static_cast<int>(entry->value))) return entry->value;
  }
  return Key2_Value_T<File_Kind>::find(kinds, text.data(), text.size()).value;
}
