#include "backup/runtime/detail/block_stack.h"
#include "json_spirit/json_spirit.h"
#include "json_spirit/rapidjson_setup.h"

#include <rapidjson/prettywriter.h>
#include <rapidjson/writer.h>

#include <charconv>
#include <cmath>
#include <string_view>

namespace json_spirit {

namespace {

using Utf8 = rapidjson::UTF8<>;

// Gathers what comes character by character. Wiped at its end like the text.
class String_Stream {
public:
  using Ch = char;

  explicit String_Stream(Secure_String& text) : text_(text) {}
  String_Stream(String_Stream const&) = delete;
  String_Stream& operator=(String_Stream const&) = delete;
  ~String_Stream() { secure_memset(buffer_, 0, sizeof buffer_); }

  void Put(char c) {
    if (at_ == buffer_ + sizeof buffer_) flush();
    *at_++ = c;
  }
  void Flush() {}
  void flush() {
    text_.append(buffer_, static_cast<std::size_t>(at_ - buffer_));
    at_ = buffer_;
  }

private:
  Secure_String& text_;
  char buffer_[256];
  char* at_ = buffer_;
};

template <class Writer>
class Value_Writer {
public:
  explicit Value_Writer(Writer& writer) : writer_(writer) {}

  void write(Value const& root) {
    write_value(root);
    while (!open_.empty()) {
      if (open_.top().object != nullptr) {
        write_next_member(open_.top());
      } else {
        write_next_element(open_.top());
      }
    }
  }

private:
  // A container whose start is written, and what comes next in it. One of the two is null.
  struct Level {
    Object const* object;
    Array const* array;
    Object::const_iterator member;
    std::size_t index;
  };

  void write_next_member(Level& level) {
    if (level.member == level.object->end()) {
      writer_.EndObject();
      open_.pop();
      return;
    }
    auto const& [key, value] = *level.member++;
    writer_.Key(key.data(), key.size());
    write_value(value);
  }

  void write_next_element(Level& level) {
    if (level.index == level.array->size()) {
      writer_.EndArray();
      open_.pop();
      return;
    }
    write_value((*level.array)[level.index++]);
  }

  // Leaves a container open.
  void write_value(Value const& value) {
    switch (value.type()) {
      case obj_type:
        writer_.StartObject();
        open_.push({&value.get_obj(), nullptr, value.get_obj().begin(), 0});
        break;
      case array_type:
        writer_.StartArray();
        open_.push({nullptr, &value.get_array(), {}, 0});
        break;
      case str_type: writer_.String(value.get_str().data(), value.get_str().size()); break;
      case secure_str_type: writer_.String(value.get_secure_str().data(), value.get_secure_str().size()); break;
      case bool_type: writer_.Bool(value.get_bool()); break;
      case int_type:
        if (value.is_uint64()) {
          writer_.Uint64(value.get_uint64());
        } else {
          writer_.Int64(value.get_int64());
        }
        break;
      case real_type: write_real(value.get_real()); break;
      case null_type: writer_.Null(); break;
    }
  }

  void write_real(double real) {
    if (!std::isfinite(real)) {
      writer_.Null();
      return;
    }
    char text[32];  // the longest needs 24
    char* end = std::to_chars(text, text + sizeof(text), real).ptr;
    auto const size = [&] { return static_cast<std::size_t>(end - text); };
    if (std::string_view(text, size()).find_first_of(".e") == std::string_view::npos) {
      *end++ = '.';
      *end++ = '0';
    }
    writer_.RawValue(text, size(), rapidjson::kNumberType);
  }

  Writer& writer_;
  backup::Block_Stack<Level> open_;
};

template <template <class, class, class, class, unsigned> class Writer>
void dump(Value const& value, Secure_String& text) {
  String_Stream stream(text);
  Throwing_Allocator allocator;
  using Text_Writer = Writer<String_Stream, Utf8, Utf8, Throwing_Allocator, rapidjson::kWriteDefaultFlags>;
  Text_Writer writer(stream, &allocator);
  Value_Writer<Text_Writer>(writer).write(value);
  stream.flush();
}

}  // namespace

JSON_Dump::JSON_Dump(Value const& value, bool pretty) {
  if (pretty) {
    dump<rapidjson::PrettyWriter>(value, text_);
  } else {
    dump<rapidjson::Writer>(value, text_);
  }
}

JSON_Dump::~JSON_Dump() { secure_wipe(text_); }

}  // namespace json_spirit
