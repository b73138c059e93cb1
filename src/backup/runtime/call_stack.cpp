#include "backup/runtime/call_stack.h"

#include <dlfcn.h>
#include <unwind.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdint>
#include <string_view>

namespace backup {

namespace {

constexpr std::size_t most_calls = 64;

struct Calls {
  std::array<std::uintptr_t, most_calls> addresses;
  std::size_t count;
  bool is_inside;  // this file's own call comes first
};

_Unwind_Reason_Code add_call(_Unwind_Context* context, void* data) {
  auto& calls = *static_cast<Calls*>(data);
  std::uintptr_t const address = _Unwind_GetIP(context);
  if (calls.is_inside) {
    calls.is_inside = false;
    return _URC_NO_REASON;
  }
  if (address == 0 || calls.count == most_calls) return _URC_END_OF_STACK;
  calls.addresses[calls.count++] = address;
  return _URC_NO_REASON;
}

// Text in the caller's memory. Text beyond its end is dropped.
class Bounded_Text {
public:
  Bounded_Text(char* text, std::size_t size) : text_(text), room_(size) {}

  void add(std::string_view piece) {
    std::size_t const fitting = std::min(piece.size(), room_ - size_);
    std::copy_n(piece.data(), fitting, text_ + size_);
    size_ += fitting;
    is_cut_ = is_cut_ || fitting < piece.size();
  }

  void add_hexadecimal(std::uintptr_t number) {
    std::array<char, 16> digits;
    char const* const end = std::to_chars(digits.data(), digits.data() + digits.size(), number, 16).ptr;
    add("0x");
    add({digits.data(), static_cast<std::size_t>(end - digits.data())});
  }

  bool is_cut() const { return is_cut_; }

  std::size_t finish() {
    static constexpr std::string_view mark = "...\n";
    if (is_cut_ && room_ >= mark.size()) std::copy(mark.begin(), mark.end(), text_ + room_ - mark.size());
    return size_;
  }

private:
  char* text_;
  std::size_t room_;
  std::size_t size_ = 0;
  bool is_cut_ = false;
};

void add_call_line(Bounded_Text& out, std::uintptr_t address) {
  Dl_info place{};
  // `address` is the return address: after a call at a function's very end it lies in the next function.
  // NOLINTNEXTLINE(performance-no-int-to-ptr): the unwinder gives numbers
  bool const is_known = dladdr(reinterpret_cast<void*>(address - 1), &place) != 0;
  if (is_known && place.dli_fname != nullptr) out.add(place.dli_fname);
  if (is_known) {
    bool const has_symbol = place.dli_sname != nullptr;
    out.add("(");
    if (has_symbol) out.add(place.dli_sname);
    out.add("+");
    out.add_hexadecimal(address - reinterpret_cast<std::uintptr_t>(has_symbol ? place.dli_saddr : place.dli_fbase));
    out.add(")");
  }
  out.add(" [");
  out.add_hexadecimal(address);
  out.add("]\n");
}

}  // namespace

std::size_t write_call_stack(char* text, std::size_t size, void const* first) noexcept {
  Calls calls{{}, 0, true};
  _Unwind_Backtrace(add_call, &calls);
  std::uintptr_t const* const begin = calls.addresses.data();
  std::uintptr_t const* const end = begin + calls.count;
  std::uintptr_t const* call = std::find(begin, end, reinterpret_cast<std::uintptr_t>(first));
  if (call == end) call = begin;
  Bounded_Text out(text, size);
  for (; call != end && !out.is_cut(); ++call) add_call_line(out, *call);
  return out.finish();
}

}  // namespace backup
