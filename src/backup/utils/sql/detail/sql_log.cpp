#include "backup/utils/sql/detail/sql_log.h"

#include <ace/Log_Msg.h>
#include <ace/Log_Record.h>
#include <ace/OS_Errno.h>
#include <ace/OS_NS_sys_time.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <charconv>
#include <cstddef>
#include <mutex>
#include <thread>

#include "backup/runtime/call_stack.h"

namespace sql_log {

namespace {

constexpr std::size_t record_size = ACE_Log_Record::MAXLOGMSGLEN - 1;
constexpr std::string_view cut_mark = "...";

class Number_Text {
public:
  explicit Number_Text(int number) : end_(std::to_chars(digits_.begin(), digits_.end(), number).ptr) {}
  std::string_view get() const { return {digits_.data(), static_cast<std::size_t>(end_ - digits_.data())}; }

private:
  std::array<char, 11> digits_;
  char const* end_;
};

// The text of one record, of fixed size. The format is read twice: to measure the room for texts, and to write.
class Record_Text {
public:
  Record_Text(Source source, char const* format, std::initializer_list<Argument> arguments, void const* caller)
      : file_(source.file), line_(source.line), format_(format), arguments_(arguments), caller_(caller) {
    fit_texts();
    for_each_piece([this](std::string_view piece, Kind kind) { write(piece, kind); });
    text_[size_] = '\0';
  }

  char const* get() const { return text_.data(); }

private:
  enum Kind { as_it_stands, text_to_fit, call_stack };

  // Calls `take(piece, kind)` for each piece of the format, with directives replaced.
  template <class Take>
  void for_each_piece(Take take) const {
    Argument const* argument = arguments_.begin();
    std::string_view rest = format_;
    while (!rest.empty()) {
      std::size_t const percent = std::min(rest.find('%'), rest.size());
      take(rest.substr(0, percent), as_it_stands);
      if (percent + 1 >= rest.size()) return;
      switch (rest[percent + 1]) {
        case 's': take(until_zero(std::get<std::string_view>(*argument++)), text_to_fit); break;
        case 'd': take(Number_Text(std::get<int>(*argument++)).get(), as_it_stands); break;
        case 'N': take(file_, as_it_stands); break;
        case 'l': take(line_.get(), as_it_stands); break;
        default: take({}, call_stack);
      }
      rest.remove_prefix(percent + 2);
    }
  }

  // Texts in the log end at a zero byte. Reads at most the size of a record.
  static std::string_view until_zero(std::string_view text) {
    text = text.substr(0, record_size);
    return text.substr(0, text.find('\0'));
  }

  // Shares the remaining room among the texts: short ones stay whole, the others get equal shares.
  void fit_texts() {
    std::array<std::size_t, most_texts> sizes{};
    std::size_t count = 0;
    for_each_piece([&](std::string_view piece, Kind kind) {
      if (kind == as_it_stands) room_ -= piece.size();
      if (kind == text_to_fit) sizes[count++] = piece.size();
    });
    std::sort(sizes.begin(), sizes.end());  // unused places come first with size 0
    for (std::size_t i = 0; i < most_texts; ++i) {
      longest_ = std::min(longest_, room_ / (most_texts - i));
      room_ -= std::min(sizes[i], longest_);
      if (sizes[i] <= longest_) longest_ = record_size;  // this one is whole; the rest goes to the others
    }
  }

  void write(std::string_view piece, Kind kind) {
    if (kind == call_stack) {
      size_ += backup::write_call_stack(text_.data() + size_, room_, caller_);
      return;
    }
    bool const is_cut = kind == text_to_fit && piece.size() > longest_;
    if (is_cut) piece = piece.substr(0, character_end(piece, longest_ - cut_mark.size()));
    append(piece);
    if (is_cut) append(cut_mark);
  }

  void append(std::string_view piece) {
    std::copy(piece.begin(), piece.end(), text_.data() + size_);
    size_ += piece.size();
  }

  // The largest end up to `size` that cuts no UTF-8 character in two.
  static std::size_t character_end(std::string_view text, std::size_t size) {
    std::size_t end = size;
    while (end > 0 && size - end < 4 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U) --end;
    return end;
  }

  static constexpr std::size_t most_texts = 4;

  std::string_view file_;
  Number_Text line_;
  std::string_view format_;
  std::initializer_list<Argument> arguments_;
  void const* caller_;                 // where the call stack begins
  std::size_t room_ = record_size;     // in the end, what the call stack may take
  std::size_t longest_ = record_size;  // the most that one text may take
  std::size_t size_ = 0;
  std::array<char, record_size + 1> text_;
};

// A record needs memory of its own. This one has its memory from the start, for reports when there is none.
ACE_Log_Record spare_record;
std::mutex spare_record_in_use;
std::atomic<std::thread::id> spare_record_user;

void log_spare_record(ACE_Log_Msg& log, ACE_Log_Priority priority, char const* text) {
  if (spare_record_user == std::this_thread::get_id()) return;  // a callback that itself reports
  std::lock_guard<std::mutex> const lock(spare_record_in_use);
  spare_record_user = std::this_thread::get_id();
  struct Release {
    ~Release() { spare_record_user = std::thread::id(); }
  } const release;
  spare_record.type(priority);
  spare_record.time_stamp(ACE_OS::gettimeofday());
  spare_record.pid(log.getpid());
  if (spare_record.msg_data(text) == 0) log.log(spare_record);
}

}  // namespace

void write_record(Source source, ACE_Log_Priority priority, int op_status, char const* format,
                  std::initializer_list<Argument> arguments) {
  ACE_Errno_Guard const keep_errno(errno);
  int const error = ACE_Log_Msg::last_error_adapter();
  ACE_Log_Msg* const log = ACE_Log_Msg::instance();
  if (log == nullptr) return;  // no memory for this thread's first one
  if (log->log_priority_enabled(priority) == 0) return;
  log->file(source.file);
  log->linenum(source.line);
  log->op_status(op_status);
  log->errnum(error);
  Record_Text const text(source, format, arguments, __builtin_return_address(0));
  log->msg(text.get());
  // Without memory ACE's own formatting would give callbacks a record without text.
  ACE_Log_Record record(priority, ACE_OS::gettimeofday(), log->getpid());
  if (record.msg_data(text.get()) == 0) {
    log->log(record);
  } else {
    log_spare_record(*log, priority, text.get());
  }
}

}  // namespace sql_log
