#include "output.h"

#include <algorithm>
#include <cstddef>
#include <ostream>
#include <string>
#include <utility>

#include "backup/runtime/posix_time.h"
#include "file.h"
#include "json_spirit/json_spirit.h"
#include "text.h"

using backup::Store;

namespace {

constexpr char const* time_pattern = "%Y-%m-%d %H:%M:%S";

std::string kind_text(long long number) {
  char const* const word = kind_word(number);
  return word != nullptr ? word : std::to_string(number);
}

// The value as text, the same for every format; empty for NULL.
std::string cell_text(Cell cell, Binding_Value const& value) {
  if (value.type() == Binding_Value::null_type) return {};
  json_spirit::Value const& val = value.val();
  switch (cell) {
    case Cell::text: return val.get_str();
    case Cell::number: return value.type() == Binding_Value::str_type ? val.get_str() : std::to_string(val.get_int64());
    case Cell::kind: return kind_text(val.get_int64());
    case Cell::time: return POSIX_Time_To_ISO8601(val.get_int64(), time_pattern);
    case Cell::uuid: return uuid_text(val.get_str());
  }
  return {};
}

class Table_Writer : public Page_Writer {
public:
  Table_Writer(std::ostream& out, Columns const& columns, Total total, unsigned long long offset)
      : out_(out), columns_(columns), total_(std::move(total)), offset_(offset), widths_(columns.size()) {
    Line& header = lines_.emplace_back();
    for (Column const& column : columns) {
      std::string title = column.name;
      std::transform(title.begin(), title.end(), title.begin(),
                     [](char c) { return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c; });
      header.push_back(std::move(title));
    }
  }

  void row(Store::Row const& values) override {
    if (lines_.size() == most_held_rows) write_lines();
    ++rows_;
    Line& line = lines_.emplace_back();
    for (std::size_t i = 0; i < columns_.size(); ++i) {
      std::string text = cell_text(columns_[i].cell, values[i]);
      line.push_back(columns_[i].cell == Cell::number ? grouped(std::move(text)) : printable(text));
    }
  }

  void end() override {
    write_lines();
    if (!out_.flush()) return;
    if (rows_ == 0) {
      out_ << "0";
    } else {
      out_ << grouped(offset_ + 1) << '-' << grouped(offset_ + rows_);
    }
    out_ << " of " << grouped(total_(rows_)) << '\n';
  }

private:
  using Line = std::vector<std::string>;

  // A column never becomes narrower.
  void write_lines() {
    for (Line const& line : lines_) {
      for (std::size_t i = 0; i < line.size(); ++i) widths_[i] = std::max(widths_[i], display_width(line[i]));
    }
    for (Line const& line : lines_) write_line(line);
    lines_.clear();
  }

  void write_line(Line const& line) {
    std::string text;
    for (std::size_t i = 0; i < line.size(); ++i) {
      std::string const padding(widths_[i] - display_width(line[i]), ' ');
      text += columns_[i].cell == Cell::number ? padding + line[i] : line[i] + padding;
      text += "  ";
    }
    text.erase(text.find_last_not_of(' ') + 1);
    out_ << text << '\n';
  }

  std::ostream& out_;
  Columns const& columns_;
  Total const total_;
  unsigned long long offset_;
  std::vector<Line> lines_;  // not yet written
  std::vector<std::size_t> widths_;
  unsigned long long rows_ = 0;
};

class JSON_Writer : public Page_Writer {
public:
  JSON_Writer(std::ostream& out, Columns const& columns, Total total, unsigned long long offset)
      : out_(out), columns_(columns), total_(std::move(total)), offset_(offset) {}

  void row(Store::Row const& values) override {
    json_spirit::Object object;
    for (std::size_t i = 0; i < columns_.size(); ++i) object[columns_[i].name] = json(columns_[i].cell, values[i]);
    json_spirit::JSON_Dump const text(json_spirit::Value(std::move(object)), false);
    if (rows_ == most_held_rows) begin();
    held_ += separator_ + printable_json(text.c_str());
    separator_ = ",\n";
    if (++rows_ > most_held_rows) write_held();
  }

  void end() override {
    if (rows_ <= most_held_rows) begin();
    out_ << "]}\n";
  }

private:
  void begin() {
    out_ << "{\"total\":" << total_(rows_) << ",\"offset\":" << offset_ << ",\"rows\":[";
    write_held();
  }

  void write_held() {
    out_ << held_;
    held_.clear();
  }

  static json_spirit::Value json(Cell cell, Binding_Value const& value) {
    if (cell == Cell::number || value.type() == Binding_Value::null_type) return value.val();
    return valid_utf8(cell_text(cell, value));
  }

  std::ostream& out_;
  Columns const& columns_;
  Total const total_;
  unsigned long long offset_;
  std::string separator_ = "\n";
  std::string held_;  // rows not yet written
  unsigned long long rows_ = 0;
};

class CSV_Writer : public Page_Writer {
public:
  CSV_Writer(std::ostream& out, bool is_terminal, Columns const& columns)
      : out_(out), is_terminal_(is_terminal), columns_(columns) {
    for (Column const& column : columns_) field(column.name);
    end_line();
  }

  void row(Store::Row const& values) override {
    for (std::size_t i = 0; i < columns_.size(); ++i) field(cell_text(columns_[i].cell, values[i]));
    end_line();
  }

  void end() override {}

private:
  void field(std::string const& bytes) {
    std::string const text = is_terminal_ ? printable(bytes) : bytes;
    out_ << separator_;
    separator_ = ",";
    if (text.find_first_of(",\"\r\n") == std::string::npos) {
      out_ << text;
      return;
    }
    out_ << '"';
    for (char const c : text) {
      if (c == '"') out_ << '"';
      out_ << c;
    }
    out_ << '"';
  }

  void end_line() {
    out_ << "\r\n";
    separator_ = "";
  }

  std::ostream& out_;
  bool const is_terminal_;
  Columns const& columns_;
  char const* separator_ = "";
};

}  // namespace

std::unique_ptr<Page_Writer> page_writer(Format format, std::ostream& out, bool is_terminal, Columns const& columns,
                                         Total total, unsigned long long offset) {
  switch (format) {
    case Format::json: return std::make_unique<JSON_Writer>(out, columns, std::move(total), offset);
    case Format::csv: return std::make_unique<CSV_Writer>(out, is_terminal, columns);
    case Format::table: break;
  }
  return std::make_unique<Table_Writer>(out, columns, std::move(total), offset);
}
