#pragma once

#include <cstddef>

#include "backup/runtime/runtime_export.h"

namespace backup {

/// Writes the calls that led here to `text`, the innermost first, each as a line with a line break: "<program or
/// library>(<symbol>+0x<offset>) [0x<address>]", Without a known exported symbol the offset is that in the file. Begins
/// with the call that returns to `first`, or, without such a call, with this function's caller. Writes at most 64 calls
/// and `size` bytes, no zero byte at the end; a text that is too long ends in "...". Returns the number of bytes
/// written.
///
/// Takes no memory, and the same amount of stack at any depth of calls, so it works when either is short.
BACKUP_RUNTIME_API std::size_t write_call_stack(char* text, std::size_t size, void const* first = nullptr) noexcept;

}  // namespace backup
